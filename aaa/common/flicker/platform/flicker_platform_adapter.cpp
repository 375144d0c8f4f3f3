#define LOG_TAG "FlickerPlatformAdapter"
#define FLK_LOG_LEVEL_VAR flicker_log::g_adapterLevel

#include "flicker_platform_adapter.h"

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "cam_inst.h"
#include "cam_properties.h"
#include "flicker_dump_writer.h"
#include "flicker_freq.h"
#include "flicker_log.h"
#include "flicker_trace.h"

namespace {

// One adapter per sensor index. The table is never destroyed: a manager's
// worker may still be detecting on an adapter's buffers while the process
// exits, so every adapter lives until the process is gone.
NS3Av3::INST_T<FlickerPlatformAdapter>& adapterSlot(int sensorIdx) {
  static auto* const slots =
      new NS3Av3::INST_T<FlickerPlatformAdapter>[FlickerPlatformAdapter::kMaxSensors];
  return slots[sensorIdx];
}

constexpr const char* kPropLogLevel = "vendor.debug.flicker_mgr.log.level";
constexpr const char* kPropDump = "vendor.debug.flk_dump";

// Statistics-hardware settings; words 8..14 repeat one byte in their two low
// bytes and are kept exactly.
constexpr int32_t kStatConfig[17] = {4,    0,     20,    3,     25,    6,     3,    16,   5140,
                                     7453, 10794, 15934, 22616, 32382, 46260, 2630, 65535};

// Settings of the two sensors with their own algorithm paths.
constexpr uint32_t kLineFactor1398 = 22;
constexpr int32_t kInitRows1398 = 96;
constexpr int32_t kInitCols1398 = 2;
constexpr uint32_t kLineFactor8581 = 8;
constexpr int32_t kRows8581Mode0 = 67;
constexpr int32_t kRows8581Other = 50;
constexpr int32_t kCols8581 = 720;
constexpr int32_t kInitParam8581 = 8;

// Detection record constants per path (offsets 24 and 28, 32 and 36).
constexpr int32_t kDetectRows = 3;
constexpr int32_t kDetectColsGeneric = 6;
constexpr int32_t kDetectCols1398 = 4;
constexpr int32_t kDetectCols8581 = 1;
constexpr int32_t kDetectWin1398W = 2;
constexpr int32_t kDetectWin1398H = 32;

// The algorithm's print function: one 1024-byte line under "FlickerAlgo",
// gated by the framework's details level and mask only.
__attribute__((format(printf, 1, 2))) void myPrint(const char* format, ...) {
  if (format == nullptr || !flicker_log::frameworkDetailsOn()) {
    return;
  }
  char text[flicker_log::kLineSize];
  va_list args;
  va_start(args, format);
  const int written = vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  if (written < 0) {
    return;
  }
  FLK_LOG_DEBUG_TAGGED_(__FUNCTION__, "FlickerAlgo", "%s", text);
}

}  // namespace

// ---- Instances and buffers ----

FlickerPlatformAdapter* FlickerPlatformAdapter::getInstance(int sensorIdx) {
  if (static_cast<unsigned>(sensorIdx) >= static_cast<unsigned>(kMaxSensors)) {
    FLK_LOGE("Unsupport SensorIdx: %d\n", sensorIdx);
    return nullptr;
  }
  NS3Av3::INST_T<FlickerPlatformAdapter>& slot = adapterSlot(sensorIdx);
  std::call_once(slot.onceFlag, [&slot, sensorIdx] {
    slot.instance.reset(new FlickerPlatformAdapter(sensorIdx));
  });
  return slot.instance.get();
}

FlickerPlatformAdapter::FlickerPlatformAdapter(int sensorIdx) : sensor_idx_(sensorIdx) {}

// Adapters of the instance table are never destroyed.
FlickerPlatformAdapter::~FlickerPlatformAdapter() = default;

int FlickerPlatformAdapter::init(int sensorDev, int sensorId) {
  flicker_log::g_adapterLevel.store(NSCam::Utils::Properties::property_get_int32(kPropLogLevel, 0),
                                    std::memory_order_relaxed);
  (void)sensorDev;  // the adapter has no use for it
  sensor_id_ = sensorId;
  FLK_LOGD("SensorIdx(%d), SensorId(%d)", sensor_idx_, sensorId);
  // A failed allocation is reported by createBuf and again by every setBuf.
  (void)buffers_.createBuf();
  return 0;
}

int FlickerPlatformAdapter::uninit() {
  buffers_.releaseBuf();
  return 0;
}

int FlickerPlatformAdapter::setFlickerAutoTest(int enable) {
  auto_test_ = enable == 1;
  return 0;
}

// ---- Algorithm commands ----

int FlickerPlatformAdapter::init_algo(unsigned int lineLength, unsigned int height,
                                      unsigned int width, long pixelClk, int sensorPath) {
  // The algorithm's records carry the low 32 bits of the pixel clock.
  pixel_clk_ = static_cast<int32_t>(static_cast<uint32_t>(pixelClk));
  line_length_ = lineLength;

  FlkInitPara para;
  memset(&para, 0, sizeof(para));
  const int32_t sensorId = sensor_id_;
  if (sensorPath != 1) {
    para.sensorPath = FLK_PATH_GENERIC;
    para.lineLength = lineLength;
    para.statLineCount = static_cast<int32_t>(3u * height);
    para.statWidth = static_cast<int32_t>(width);
    para.pixelClk = static_cast<double>(pixelClk);
    FLK_LOGD("flicker_init");
  } else if (sensorId == kSensorId1398) {
    para.sensorPath = FLK_PATH_SENSOR_1398;
    para.lineLength = lineLength * kLineFactor1398;
    para.statLineCount = kInitRows1398;
    para.statWidth = kInitCols1398;
    para.pixelClk = static_cast<double>(pixelClk);
    FLK_LOGD("flicker_init_SONY");
  } else if (sensorId == kSensorId8581) {
    para.sensorPath = FLK_PATH_SENSOR_8581;
    para.lineLength = lineLength * kLineFactor8581;
    para.statLineCount = sensor_mode_ == 0 ? kRows8581Mode0 : kRows8581Other;
    para.statWidth = kCols8581;
    para.pixelClk = static_cast<double>(pixelClk);
    para.sensorParam = kInitParam8581;
  }
  // An unlisted sensor on the sensor path goes out as an all-zero record;
  // detectFlicker reports it.
  flk_SendCmd(FLK_CMD_INIT, &para, nullptr);
  return 0;
}

int FlickerPlatformAdapter::uninit_algo() {
  flk_SendCmd(FLK_CMD_UNINIT, nullptr, nullptr);
  return 0;
}

int FlickerPlatformAdapter::setExtPara(FlickerExtPara para, float ratio) {
  FlkExtParaCmd cmd;
  memset(&cmd, 0, sizeof(cmd));
  cmd.para = para;
  if (ratio != 1.0f) {
    // The search range is in statistics lines: scale it by the resize ratio,
    // in single precision, truncating toward zero.
    const float scaled = static_cast<float>(para.flickerSearchRange) * ratio;
    if (scaled > static_cast<float>(INT32_MIN) && scaled < static_cast<float>(INT32_MAX)) {
      cmd.para.flickerSearchRange = static_cast<int32_t>(scaled);
      FLK_LOGD("ratio(%f), range(%d)", static_cast<double>(ratio), cmd.para.flickerSearchRange);
    } else {
      FLK_LOGE("range(%d) out of bounds with ratio(%f); sent unscaled.", para.flickerSearchRange,
               static_cast<double>(ratio));
    }
  }
  flk_SendCmd(FLK_CMD_SET_EXT_PARA, &cmd, nullptr);
  return 0;
}

int FlickerPlatformAdapter::setFlickerState(int hz) {
  FLK_LOGD("%d.", hz);
  int32_t code = FlickerFreq::fromHz(hz).algoCode();
  flk_SendCmd(FLK_CMD_SET_STATE, &code, nullptr);
  return 0;
}

int FlickerPlatformAdapter::resetQueue(int hz) {
  FLK_LOGD("%d.", hz);
  int32_t code = FlickerFreq::fromHz(hz).algoCode();
  flk_SendCmd(FLK_CMD_RESET_QUEUE, &code, nullptr);
  return 0;
}

int FlickerPlatformAdapter::setLogLevel(int level) {
  FLK_LOGD("%d.", level);
  FlkLogPara para;
  memset(&para, 0, sizeof(para));
  para.level = level;
  para.print = myPrint;
  flk_SendCmd(FLK_CMD_SET_LOG, &para, nullptr);
  return 0;
}

int FlickerPlatformAdapter::setTwinInfo(int type, int winX, int winY) {
  // The twin window is only reported: no command carries it.
  FLK_LOGD("type:%d win_x:%d win_Y:%d", type, winX, winY);
  return 0;
}

int FlickerPlatformAdapter::getFrameRateType(_EFLKDecreaseFrameRateType* out) {
  if (out == nullptr) {
    FLK_LOGE("null output.");
    return -1;
  }
  *out = FLK_DECREASE_FRAME_RATE_DETECT;
  return 0;
}

int FlickerPlatformAdapter::getFlickerScore(int* score50, int* score60) {
  if (score50 == nullptr || score60 == nullptr) {
    FLK_LOGE("null output: score50(%p) score60(%p).", static_cast<void*>(score50),
             static_cast<void*>(score60));
    return -1;
  }
  *score50 = flicker_score_50_;
  *score60 = flicker_score_60_;
  return 0;
}

// ---- Statistics window and conversion ----

int FlickerPlatformAdapter::setWindowInfo(int width, int height) {
  return buffers_.setWindowInfo(width, height);
}

int FlickerPlatformAdapter::getFLKStatConfig(flk_stat_config* out) {
  if (out == nullptr) {
    FLK_LOGE("null output.");
    return -1;
  }
  memcpy(out->words, kStatConfig, sizeof(out->words));
  return 0;
}

int FlickerPlatformAdapter::getSensorMode(int sensorMode, int /*unused*/, int* /*out*/) {
  // The output is deliberately left untouched: callers must not rely on it.
  sensor_mode_ = sensorMode;
  return 0;
}

int FlickerPlatformAdapter::setBuf(int sensorPath, const void* stats, int bufIndex) {
  return buffers_.setBuf(sensorPath, sensor_id_, sensor_mode_, auto_test_, stats, bufIndex);
}

// ---- Detection step ----

void FlickerPlatformAdapter::setDetectInfo(int path, int freq, int exposure, long aux) {
  detect_path_ = path;
  freq_ = freq;
  exposure_ = exposure;
  detect_aux_ = aux;
}

int FlickerPlatformAdapter::detectFlicker() {
  FlkDetectResult result{FLK_FREQ_NONE, 0, 0};
  int32_t aux[kFlkAuxWords] = {};
  FlkDetectPara para;
  memset(&para, 0, sizeof(para));
  para.sensorPath = FLK_PATH_GENERIC;
  const FlickerStatWindow window = buffers_.window();
  para.statsSlot1 = buffers_.slot(1);
  para.statsSlot0 = buffers_.slot(0);
  para.windowRows = kDetectRows;
  para.windowCols = kDetectColsGeneric;
  para.winValue1 = window.winW;
  para.winValue2 = window.winH;
  para.freq = freq_;
  para.pixelClk = pixel_clk_;
  para.lineLength = line_length_;
  para.exposure = exposure_;
  para.aux = aux;
  para.frameInterval = detect_aux_;

  if (detect_path_ == 1) {
    const int32_t sensorId = sensor_id_;
    if (sensorId == kSensorId1398) {
      para.sensorPath = FLK_PATH_SENSOR_1398;
      para.windowCols = kDetectCols1398;
      para.winValue1 = kDetectWin1398W;
      para.winValue2 = kDetectWin1398H;
    } else if (sensorId == kSensorId8581) {
      para.sensorPath = FLK_PATH_SENSOR_8581;
      para.windowCols = kDetectCols8581;
      para.winValue1 = kCols8581;
      para.winValue2 = sensor_mode_ == 0 ? kRows8581Mode0 : kRows8581Other;
    } else {
      // Read by the caller as 50 Hz; it takes this path only for the two
      // sensors above.
      FLK_LOGE("This sensor(%d) is not supported.", sensorId);
      return 0;
    }
  }
  if (para.statsSlot0 == nullptr || para.statsSlot1 == nullptr) {
    // No command and scores unchanged. The answer is the preset "neither":
    // 0 would read as 50 Hz and move a 60 Hz state on no evidence.
    FLK_LOGE("column_vector_data_1_ or column_vector_data_2_ is NULL.");
    return result.state;
  }

  if (NSCam::Utils::Properties::property_get_int32(kPropDump, 0) != 0) {
    FlickerDumpWriter::dumpFLKO(para, aux, buffers_.statCount());
  }

  FLK_TRACE_BEGIN("FLK algo");
  flk_SendCmd(FLK_CMD_DETECT, &para, &result);
  FLK_TRACE_END();

  flicker_score_50_ = result.score50;
  flicker_score_60_ = result.score60;
  FLK_LOGD("detect flicker win(%d,%d), exp(%d), freq(%d)+.", para.winValue1, para.winValue2,
           para.exposure, para.freq);
  return result.state;
}
