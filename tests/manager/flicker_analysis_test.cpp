// One analysis on its own (no worker, no manager): the state switch by the
// algorithm's answer, the frozen switch, the scores, the report line's
// exposure thresholds, and what a change of the state tells the algorithm.
#include "flicker_analysis.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "flicker_log.h"
#include "manager_rig.h"

namespace {

using mgr_test::codes;
namespace fp = fake_platform;

class FlickerAnalysisTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    adapter_->init(0, 5000);  // statistics buffers, so that detections reach the algorithm
    flicker_log::g_managerLevel = 2;
  }
  void TearDown() override { adapter_->uninit(); }

  // The process-wide state, as the previous analyses left it.
  void startFrom(int hz) {
    analysis_.setFlickerState(hz);
    fp::clearAlgoCalls();
    fp::clearLogs();
  }

  FlickerPlatformAdapter* const adapter_ = FlickerPlatformAdapter::getInstance(15);
  FlickerResult result_;
  std::atomic<int32_t> mode_{FLICKER_MODE_AUTO};
  std::atomic<int32_t> exposure_{10000};
  std::atomic<bool> toggle_{false};
  FlickerDetectionCycle cycle_{[] { return 3; }, &toggle_};
  FlickerAnalysis analysis_{15, adapter_, &result_, {&mode_, &exposure_, &cycle_}};
};

TEST_F(FlickerAnalysisTest, AnswerMovesAKnownStateInAutomaticModeOnly) {
  struct Row {
    const char* what;
    int from, mode, answer, switchProperty;  // property -1: not set
    int expect;
  } rows[] = {
      {"60 -> 50", 60, FLICKER_MODE_AUTO, FLK_FREQ_50HZ, -1, 50},
      {"50 -> 60", 50, FLICKER_MODE_AUTO, FLK_FREQ_60HZ, -1, 60},
      {"confirmed", 50, FLICKER_MODE_AUTO, FLK_FREQ_50HZ, -1, 50},
      {"no decision", 60, FLICKER_MODE_AUTO, FLK_FREQ_NONE, -1, 60},
      {"not yet known: detection never leaves 0", 0, FLICKER_MODE_AUTO, FLK_FREQ_60HZ, -1, 0},
      {"frozen by the property", 60, FLICKER_MODE_AUTO, FLK_FREQ_50HZ, 0, 60},
      {"property 1 does not freeze", 60, FLICKER_MODE_AUTO, FLK_FREQ_50HZ, 1, 50},
      {"fixed mode", 60, FLICKER_MODE_60HZ, FLK_FREQ_50HZ, -1, 60},
      {"mode 0", 60, 0, FLK_FREQ_50HZ, -1, 60},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fp::reset();
    adapter_->uninit();
    adapter_->init(0, 5000);
    startFrom(row.from);
    mode_ = row.mode;
    if (row.switchProperty >= 0)
      fp::setProperty("vendor.debug.flk_switch_en", row.switchProperty);
    fp::scriptDetectResults({{row.answer, 1, 2}});
    EXPECT_EQ(analysis_.analyzeFlickerFrequency(), 0);
    EXPECT_EQ(FlickerAnalysis::state(), row.expect);
    EXPECT_EQ(fp::logged("flicker state not changed due to property fixed"),
              row.switchProperty == 0);
    // A change tells the algorithm the state and restarts its history from
    // it, and is logged; the same state again tells nobody.
    analysis_.setFlickerState(row.expect);
    const std::string change = "[setFlickerState] state change(" + std::to_string(row.from) + "->" +
                               std::to_string(row.expect) + ").";
    EXPECT_EQ(fp::logged(change), row.expect != row.from);
    EXPECT_EQ(fp::logged("state change"), row.expect != row.from);
    const std::vector<int32_t> told =
        row.expect == row.from
            ? std::vector<int32_t>{}
            : std::vector<int32_t>{row.expect == 60 ? FLK_FREQ_60HZ : FLK_FREQ_50HZ};
    EXPECT_EQ(codes(FLK_CMD_SET_STATE), told);
    EXPECT_EQ(codes(FLK_CMD_RESET_QUEUE), told);
  }
}

TEST_F(FlickerAnalysisTest, ScoresAndTheReportLine) {
  struct Row {
    int state;
    int32_t exposure;
    int32_t aeCycle;
    bool tooShort;
  } rows[] = {
      {50, 9800, 0, true},  {50, 9801, 0, false},  // 50 Hz needs 9801 us
      {60, 8200, 3, true},  {60, 8201, 3, false},  // 60 Hz needs 8201 us
      {60, 9800, 0, false},                        // the state picks the threshold
      {0, 20000, 0, true},                         // no state yet: always "too short"
  };
  for (const Row& row : rows) {
    startFrom(row.state);
    mode_ = FLICKER_MODE_60HZ;  // fixed: the state stays as it is
    exposure_ = row.exposure;
    if (row.aeCycle != cycle_.aeDetectCycle()) {
      FlickerCycleFrame frame;
      frame.aeDetectCycle = row.aeCycle;
      for (int i = 0; i < 3; ++i) cycle_.admit(frame, FlickerCycleContext{});
    }
    fp::scriptDetectResults({{FLK_FREQ_NONE, 70 + row.state, -row.exposure}});
    analysis_.analyzeFlickerFrequency();
    const std::string line =
        "[analyzeFlickerFrequency] Input: SensorIdx(15), ExposureTime(" +
        std::to_string(row.exposure) + (row.tooShort ? ") too short, " : "), ") + "AEDetectCycle(" +
        std::to_string(row.aeCycle) + ") Output: State(" + std::to_string(row.state) +
        ") Score50/60(" + std::to_string(70 + row.state) + "/" + std::to_string(-row.exposure) +
        ") ScoreActive(" + (row.aeCycle != 0 ? "1" : "0") + ")";
    EXPECT_TRUE(fp::logged(line)) << line;
    // The scores reach the result; they are active when AE drives the cycle.
    std::vector<uint8_t> out;
    result_.encode(row.state, &out, nullptr);
    int32_t words[3];
    memcpy(words, out.data() + 12, sizeof(words));
    EXPECT_EQ(std::vector<int32_t>(words, words + 3),
              (std::vector<int32_t>{70 + row.state, -row.exposure, row.aeCycle != 0}));
  }
}

}  // namespace
