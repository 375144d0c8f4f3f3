// Command interface of the flicker detection algorithm library.
//
// The algorithm is reached through one entry, flk_SendCmd(command, input,
// output). The platform adapter is its only caller. Every record below is
// exchanged across that boundary, so its layout (little-endian, natural
// alignment) is fixed and held by static_asserts.
//
// Contract for every command:
//  - The caller owns the input and output records; they live on the caller's
//    stack and are valid only for the duration of the call. The algorithm must
//    not keep a pointer to a record. The two statistics buffers named by the
//    detection record are owned by the adapter and stay valid (and unchanged)
//    for the duration of command 2 only.
//  - One algorithm state per process; commands carry no sensor index.
//  - Calls come from the manager's threads: set-up (0, 3), state (4, 5) and
//    release (1) from the 3A thread or the sensor's worker thread, detection
//    (2) from the worker thread, log set-up (6) from the 3A thread. The
//    algorithm must not assume it is thread-safe beyond that; the manager
//    serialises commands of one sensor.
//  - Command 0 must precede commands 2 to 5; 6 may come at any time; 1 ends a
//    stream and 0 may follow again.
#pragma once

#include <cstddef>
#include <cstdint>

// Algorithm commands.
enum FlkCmd : uint32_t {
  FLK_CMD_INIT = 0,          // in: FlkInitPara
  FLK_CMD_UNINIT = 1,        // no records
  FLK_CMD_DETECT = 2,        // in: FlkDetectPara, out: FlkDetectResult
  FLK_CMD_SET_EXT_PARA = 3,  // in: FlkExtParaCmd
  FLK_CMD_SET_STATE = 4,     // in: int32 frequency code
  FLK_CMD_RESET_QUEUE = 5,   // in: int32 frequency code
  FLK_CMD_SET_LOG = 6,       // in: FlkLogPara
};

// Frequency codes spoken between the adapter and the algorithm.
enum FlkFreqCode : int32_t {
  FLK_FREQ_50HZ = 0,
  FLK_FREQ_60HZ = 1,
  FLK_FREQ_NONE = 2,  // neither / unknown
};

// Sensor paths of the initialisation and detection records.
enum FlkSensorPath : int32_t {
  FLK_PATH_GENERIC = 0,
  FLK_PATH_SENSOR_1398 = 1,
  FLK_PATH_SENSOR_8581 = 2,
};

// Whether the algorithm wants the frame rate lowered during detection. The
// only value this system produces is 1.
enum _EFLKDecreaseFrameRateType : int32_t {
  FLK_DECREASE_FRAME_RATE_NONE = 0,
  FLK_DECREASE_FRAME_RATE_DETECT = 1,
};

// One linear feature model of the tuning: slope and left/right bounds.
struct FlkLinearModel {
  int32_t m;
  int32_t b_l;
  int32_t b_r;
  int32_t offset;
};
static_assert(sizeof(FlkLinearModel) == 16, "FlkLinearModel is four int32");

// The algorithm part of a tuning record: its first 35 int32 words.
struct FlickerExtPara {
  int32_t flickerFreq[9];
  int32_t flickerGradThreshold;
  int32_t flickerSearchRange;
  int32_t minPastFrames;
  int32_t maxPastFrames;
  FlkLinearModel EV50_L50;
  FlkLinearModel EV50_L60;
  FlkLinearModel EV60_L50;
  FlkLinearModel EV60_L60;
  int32_t EV50_thresholds[2];
  int32_t EV60_thresholds[2];
  int32_t freq_feature_index[2];
};
static_assert(sizeof(FlickerExtPara) == 140, "FlickerExtPara is 35 int32 words");
static_assert(offsetof(FlickerExtPara, flickerGradThreshold) == 36, "layout");
static_assert(offsetof(FlickerExtPara, flickerSearchRange) == 40, "search range at 40");
static_assert(offsetof(FlickerExtPara, minPastFrames) == 44, "layout");
static_assert(offsetof(FlickerExtPara, maxPastFrames) == 48, "layout");
static_assert(offsetof(FlickerExtPara, EV50_L50) == 52, "layout");
static_assert(offsetof(FlickerExtPara, EV50_L60) == 68, "layout");
static_assert(offsetof(FlickerExtPara, EV60_L50) == 84, "layout");
static_assert(offsetof(FlickerExtPara, EV60_L60) == 100, "layout");
static_assert(offsetof(FlickerExtPara, EV50_thresholds) == 116, "layout");
static_assert(offsetof(FlickerExtPara, EV60_thresholds) == 124, "layout");
static_assert(offsetof(FlickerExtPara, freq_feature_index) == 132, "layout");
constexpr int kFlickerExtParaWords = 35;

// Command 0: initialisation record, zero-filled before the fields are set.
struct FlkInitPara {
  int32_t sensorPath;     // FlkSensorPath
  uint32_t lineLength;    // pixel clocks per statistics line (x22 / x8 on the sensor paths)
  int32_t statLineCount;  // generic: 3 x window height (statistics lines)
  int32_t statWidth;      // generic: window width
  double pixelClk;        // pixels per second
  int32_t sensorParam;    // sensor 8581: 8; else 0
  int32_t reserved0;
  int32_t reserved1;
  uint8_t pad[4];
};
static_assert(sizeof(FlkInitPara) == 40, "init record is 40 bytes");
static_assert(offsetof(FlkInitPara, lineLength) == 4, "layout");
static_assert(offsetof(FlkInitPara, statLineCount) == 8, "layout");
static_assert(offsetof(FlkInitPara, statWidth) == 12, "layout");
static_assert(offsetof(FlkInitPara, pixelClk) == 16, "layout");
static_assert(offsetof(FlkInitPara, sensorParam) == 24, "layout");
static_assert(offsetof(FlkInitPara, reserved0) == 28, "layout");
static_assert(offsetof(FlkInitPara, reserved1) == 32, "layout");
static_assert(offsetof(FlkInitPara, pad) == 36, "layout");

// Command 3: the tuning record followed by two zero fields.
struct FlkExtParaCmd {
  FlickerExtPara para;
  int16_t zero16;
  int8_t zero8;
  uint8_t pad;
};
static_assert(sizeof(FlkExtParaCmd) == 144, "extra-parameter record is 144 bytes");
static_assert(offsetof(FlkExtParaCmd, zero16) == 140, "layout");
static_assert(offsetof(FlkExtParaCmd, zero8) == 142, "layout");
constexpr size_t kFlkSearchRangeOffset = offsetof(FlickerExtPara, flickerSearchRange);

// printf-style sink the algorithm logs through.
using FlkPrintFn = void (*)(const char* format, ...);

// Command 6: the algorithm log word and the print function.
struct FlkLogPara {
  int32_t level;  // bit 0: log, bit 1: verbose, bits 2 and up: trace word
  uint8_t pad[4];
  FlkPrintFn print;
};
static_assert(sizeof(FlkLogPara) == 16, "log record is 16 bytes");
static_assert(offsetof(FlkLogPara, print) == 8, "layout");

// Command 2 input: the detection record, zero-filled first.
struct FlkDetectPara {
  int32_t sensorPath;  // FlkSensorPath
  int32_t reserved0;
  // Buffer 2 (slot 1) comes before buffer 1 (slot 0). In cycle mode slot 1
  // holds the later frame; in every-frame mode the slots alternate, so either
  // may be the later one.
  const int64_t* statsSlot1;
  const int64_t* statsSlot0;
  int32_t windowRows;   // 3
  int32_t windowCols;   // generic 6; sensor 1398: 4; sensor 8581: 1
  int32_t winValue1;    // generic: window width in pixels
  int32_t winValue2;    // generic: window height in statistics lines
  int32_t freq;         // current flicker state in Hz (50, 60, 0 before the first)
  int32_t pixelClk;     // low 32 bits of the pixel clock
  uint32_t lineLength;  // pixel clocks per statistics line
  uint8_t reserved1[128];
  int32_t exposure;       // microseconds
  int32_t* aux;           // nine int32, zeroed by the adapter before the call
  int64_t frameInterval;  // |exposure start of slot 1 - slot 0|, ns (absolute)
};
static_assert(sizeof(FlkDetectPara) == 200, "detection record is 200 bytes");
static_assert(offsetof(FlkDetectPara, statsSlot1) == 8, "buffer 2 comes first");
static_assert(offsetof(FlkDetectPara, statsSlot0) == 16, "layout");
static_assert(offsetof(FlkDetectPara, windowRows) == 24, "layout");
static_assert(offsetof(FlkDetectPara, windowCols) == 28, "layout");
static_assert(offsetof(FlkDetectPara, winValue1) == 32, "layout");
static_assert(offsetof(FlkDetectPara, winValue2) == 36, "layout");
static_assert(offsetof(FlkDetectPara, freq) == 40, "layout");
static_assert(offsetof(FlkDetectPara, pixelClk) == 44, "layout");
static_assert(offsetof(FlkDetectPara, lineLength) == 48, "layout");
static_assert(offsetof(FlkDetectPara, reserved1) == 52, "layout");
static_assert(offsetof(FlkDetectPara, exposure) == 180, "layout");
static_assert(offsetof(FlkDetectPara, aux) == 184, "layout");
static_assert(offsetof(FlkDetectPara, frameInterval) == 192, "layout");
constexpr int kFlkAuxWords = 9;

// Command 2 output, preset by the adapter to {FLK_FREQ_NONE, 0, 0}.
struct FlkDetectResult {
  int32_t state;  // FlkFreqCode
  int32_t score50;
  int32_t score60;
};
static_assert(sizeof(FlkDetectResult) == 12, "detection result is 12 bytes");

// The algorithm's single entry. Returns 0 on success; the adapter does not
// look at the value.
extern "C" int32_t flk_SendCmd(uint32_t cmd, void* in, void* out);
