// Record decoding and validation of every command of flk_SendCmd.
#include <gtest/gtest.h>

#include <cstdarg>
#include <limits>
#include <string>

#include "algo_test_support.h"
#include "algo_tuning.h"
#include "open_algo_default_tuning.h"

namespace algo_test {
namespace {

using open_algo::AlgoKnobs;
using open_algo::AlgoTuning;

// A 60 Hz pair seen from state 50: with minPastFrames 1 it switches at once.
FlkDetectPara record60() {
  static const auto s0 = frame(Light{60}, 0.0, 10e-3, flat(), 0);
  static const auto s1 = frame(Light{60}, 36e-3, 10e-3, flat(), 1);
  return Driver::record(s0.data(), s1.data(), 50, 10000, 36000000);
}

void expectNeither(const Outcome& o) {
  EXPECT_EQ(o.result.state, FLK_FREQ_NONE);
  EXPECT_EQ(o.result.score50 + o.result.score60, 0);
}

// Command 2: every malformed record answers neither with scores 0.
TEST(Detect, BadRecordsAnswerNeither) {
  static const int64_t kTiny[18] = {};
  static std::vector<int64_t> junk(static_cast<size_t>(kLines) * kWindows);
  for (size_t i = 0; i < junk.size(); ++i) {  // extremes are masked, never summed
    const int64_t v[] = {std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min(),
                         -5, 0, 1LL << 62};
    junk[i] = v[i % 5];
  }
  const std::pair<const char*, void (*)(FlkDetectPara&)> rows[] = {
      {"null slot 0", [](FlkDetectPara& p) { p.statsSlot0 = nullptr; }},
      {"no windows", [](FlkDetectPara& p) { p.windowCols = 0; }},
      {"seven windows", [](FlkDetectPara& p) { p.windowCols = 7; }},
      {"zero window height", [](FlkDetectPara& p) { p.winValue2 = 0; }},
      {"over 36000 entries", [](FlkDetectPara& p) { p.winValue2 = 2001; }},
      {"overflowing geometry", [](FlkDetectPara& p) { p.winValue2 = 0x7fffffff; }},
      {"zero exposure", [](FlkDetectPara& p) { p.exposure = 0; }},
      {"interval over 1 s", [](FlkDetectPara& p) { p.frameInterval = 2000000000; }},
      {"negative interval", [](FlkDetectPara& p) { p.frameInterval = -1; }},
      {"sensor-specific path", [](FlkDetectPara& p) { p.sensorPath = FLK_PATH_SENSOR_1398; }},
      {"too few lines for a fit",
       [](FlkDetectPara& p) { p.statsSlot0 = p.statsSlot1 = kTiny, p.winValue2 = 1; }},
      {"garbage entries", [](FlkDetectPara& p) { p.statsSlot0 = p.statsSlot1 = junk.data(); }},
  };
  for (const auto& [what, spoil] : rows) {
    SCOPED_TRACE(what);
    FlickerExtPara t{};
    t.minPastFrames = 1;
    Driver d(t, 50);
    FlkDetectPara p = record60();
    spoil(p);
    expectNeither(Driver::detectRecord(p));
  }
  FlkDetectResult r{FLK_FREQ_50HZ, 7, 7};
  EXPECT_EQ(Driver::send(FLK_CMD_DETECT, nullptr, &r), -1);
  expectNeither(Outcome{0, r, {}});
  FlkDetectPara p = record60();
  EXPECT_EQ(Driver::send(FLK_CMD_DETECT, &p, nullptr), -1);
}

// Commands 0 and 1: unusable init records and a release leave detections at
// neither; a new init works again with the tuning sent before the release.
TEST(Commands, InitReleaseAndBadRecords) {
  FlkInitPara path1 = genericInit(), path2 = genericInit();
  path1.sensorPath = FLK_PATH_SENSOR_1398;
  path2.sensorPath = FLK_PATH_SENSOR_8581;
  const std::pair<const char*, FlkInitPara> rows[] = {
      {"line length 0", genericInit(0)},
      {"NaN pixel clock", genericInit(4800, std::numeric_limits<double>::quiet_NaN())},
      {"10 ms line time", genericInit(4800000)},
      {"sensor path 1", path1},
      {"sensor path 2", path2},
  };
  FlickerExtPara t{};
  t.minPastFrames = 1;
  for (const auto& [what, init] : rows) {
    SCOPED_TRACE(what);
    Driver d(t, 50, init);
    expectNeither(Driver::detectRecord(record60()));
  }
  Driver d(t, 50);
  EXPECT_EQ(Driver::send(FLK_CMD_INIT, nullptr), -1);
  Driver::send(FLK_CMD_UNINIT, nullptr);
  expectNeither(Driver::detectRecord(record60()));
  FlkInitPara init = genericInit();
  EXPECT_EQ(Driver::send(FLK_CMD_INIT, &init), 0);
  EXPECT_EQ(Driver::detectRecord(record60()).result.state, FLK_FREQ_60HZ);
  // Commands 3 to 6 reject null or out-of-range records, as does an unknown
  // command; the algorithm works on afterwards.
  int32_t three = 3, minusOne = -1;
  const std::pair<uint32_t, void*> bad[] = {
      {FLK_CMD_SET_STATE, nullptr},     {FLK_CMD_SET_STATE, &three},
      {FLK_CMD_RESET_QUEUE, &minusOne}, {FLK_CMD_SET_EXT_PARA, nullptr},
      {FLK_CMD_SET_LOG, nullptr},       {7, nullptr},
      {0xffffffffu, nullptr},
  };
  for (const auto& [cmd, record] : bad) {
    EXPECT_EQ(Driver::send(cmd, record), -1) << cmd;
  }
  EXPECT_EQ(Driver::detectRecord(record60()).rc, 0);
}

// Command 3: zero words take the defaults (the recommended table decodes to
// the same knobs), others are scaled, out-of-range words are clamped, unused
// words change nothing. The effective record holds each word as read.
TEST(Tuning, WordsDecodeToKnobs) {
  FlickerExtPara table;
  std::memcpy(&table, open_algo::kDefaultTuningWords, sizeof(table));
  const AlgoKnobs defaults = AlgoTuning::defaults();
  const AlgoKnobs fromTable = AlgoTuning::decode(table);
  // To the bit: the table is the defaults written out, not an approximation.
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
  EXPECT_EQ(std::memcmp(&defaults, &fromTable, sizeof(AlgoKnobs)), 0);
  const FlickerExtPara zero{};
  const FlickerExtPara filled = AlgoTuning::effective(zero);
  EXPECT_EQ(std::memcmp(&filled, &table, sizeof(table)), 0) << "zeros read as the defaults";
  struct Row {
    int word;
    int32_t value;
    double (*knob)(const AlgoKnobs&);
    double expected;
    int clamped;
    int32_t effective;  // the word as the algorithm reads it
  } rows[] = {
      {0, 100, [](const AlgoKnobs& k) { return k.minAmplitude; }, 0.01, 0, 100},
      {2, 50, [](const AlgoKnobs& k) { return k.dominance; }, 1.0, 1, 100},  // under 1x
      {9, 250, [](const AlgoKnobs& k) { return double(k.switchScore); }, 100, 1, 100},
      // Limits that depend on another word: the noise floor stays under half
      // the full scale, the history holds at least the frames a switch needs.
      {6, 600, [](const AlgoKnobs& k) { return k.noiseFloor; }, 511, 1, 511},
      {12, 1, [](const AlgoKnobs& k) { return double(k.maxPastFrames); }, 2, 1, 2},
      // A negative search range means every line.
      {10, -3, [](const AlgoKnobs& k) { return double(k.searchRange); }, 0, 1, 0},
      // An unused word is kept as it is.
      {20, 77, [](const AlgoKnobs& k) { return k.minAmplitude; }, 0.001, 0, 77},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "word " << row.word << " = " << row.value);
    int32_t words[open_algo::kTuningWords] = {};
    words[row.word] = row.value;
    FlickerExtPara p;
    std::memcpy(&p, words, sizeof(p));
    int clamped = -1;
    EXPECT_DOUBLE_EQ(row.knob(AlgoTuning::decode(p, &clamped)), row.expected);
    EXPECT_EQ(clamped, row.clamped);
    const FlickerExtPara e = AlgoTuning::effective(p);
    int32_t read[open_algo::kTuningWords];
    std::memcpy(read, &e, sizeof(read));
    EXPECT_EQ(read[row.word], row.effective);
  }
}

// Command 6: bit 0 summary, bit 1 detail; no print function is silence.
std::vector<std::string> g_lines;
void capture(const char* format, ...) {  // always "%s" with the line
  va_list args;
  va_start(args, format);
  g_lines.emplace_back(va_arg(args, const char*));
  va_end(args);
}

TEST(LogCommand, HonoursTheBits) {
  struct Row {
    int32_t word;
    bool print, summary, detail;
  } rows[] = {
      {0, true, false, false},
      {1, true, true, false},
      {3, true, true, true},
      {3, false, false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.word);
    Driver d;
    g_lines.clear();
    FlkLogPara log{};
    log.level = row.word;
    log.print = row.print ? capture : nullptr;
    Driver::send(FLK_CMD_SET_LOG, &log);
    Driver::detectRecord(record60());
    int summary = 0, detail = 0;
    for (const std::string& l : g_lines) {
      summary += l.rfind("[detect] ", 0) == 0 ? 1 : 0;
      detail += l.find(" Hz: gain(") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(summary > 0, row.summary);
    EXPECT_EQ(detail > 0, row.detail);
  }
  FlkLogPara off{};
  Driver::send(FLK_CMD_SET_LOG, &off);
}

}  // namespace
}  // namespace algo_test
