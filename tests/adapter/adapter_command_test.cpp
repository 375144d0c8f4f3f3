// Adapter instances, initialisation and the two statistics buffers (their
// allocation failures run under the manager in the reliability tests); the
// algorithm commands, checked byte for byte as the algorithm receives them.
#include <cstdlib>
#include <functional>
#include <numeric>
#include <tuple>
#include <utility>

#include "adapter_test_support.h"

namespace adapter_test {
namespace {

TEST(AdapterInstance, OneAdapterPerIndexZeroToNineteen) {
  fp::reset();
  for (const int index : {-1, 20}) {  // negative (the test is unsigned) and one past the table
    EXPECT_EQ(FlickerPlatformAdapter::getInstance(index), nullptr);
    EXPECT_TRUE(fp::loggedError("[getInstance] Unsupport SensorIdx: " + std::to_string(index)));
  }
  FlickerPlatformAdapter* first = FlickerPlatformAdapter::getInstance(0);
  FlickerPlatformAdapter* last = FlickerPlatformAdapter::getInstance(19);
  ASSERT_TRUE(first != nullptr && last != nullptr && first != last);
  EXPECT_EQ(FlickerPlatformAdapter::getInstance(19), last);
}

// Re-init without uninit: logged, two fresh blocks, the old ones dropped.
TEST_F(AdapterTest, InitTwiceLogsAndTakesFreshBuffers) {
  const DetectView before = capture(0);
  EXPECT_EQ(adapter_->init(0, kGeneric), 0);
  EXPECT_TRUE(fp::loggedError("[createBuf] buffer is not empty."));
  const DetectView after = capture(0);
  EXPECT_TRUE(after.para.statsSlot0 != before.para.statsSlot0 &&
              after.para.statsSlot1 != before.para.statsSlot1);
  // The adapter let go of the old blocks without freeing them: freeing them
  // here must be the first and only free (the sanitizer checks that).
  free(const_cast<int64_t*>(before.para.statsSlot0));
  free(const_cast<int64_t*>(before.para.statsSlot1));
  // Uninit twice is harmless and sends no command; frames then fail.
  EXPECT_EQ(adapter_->uninit() + adapter_->uninit(), 0);
  const std::vector<int64_t> stats(kEntries, 1);
  EXPECT_EQ(setBuf(0, stats.data(), 0), -1);
  EXPECT_TRUE(fp::loggedError("column_vector_data_1_ or column_vector_data_2_ is NULL."));
  EXPECT_EQ(fp::algoCalls().size(), 2u);  // the two detections
}

TEST_F(AdapterTest, InitAlgoRecordPerSensorPathAndMode) {
  const long kClk = 0x1'2345'6789L;  // above 32 bits: the double keeps it all
  const double clk = static_cast<double>(kClk);
  const FlkInitPara generic = FlkInitPara{FLK_PATH_GENERIC, 5000, 3 * 984, 666, clk, 0, 0, 0, {}};
  struct Row {
    const char* what;
    int sensorId, path, sensorMode;
    FlkInitPara expected;
  } rows[] = {
      {"generic path ignores the sensor id", 1398, 0, 0, generic},
      {"sensor 1398", 1398, 1, 0,
       FlkInitPara{FLK_PATH_SENSOR_1398, 5000 * 22, 96, 2, clk, 0, 0, 0, {}}},
      {"8581 mode 0", 8581, 1, 0,
       FlkInitPara{FLK_PATH_SENSOR_8581, 40000, 67, 720, clk, 8, 0, 0, {}}},
      {"8581 mode 3", 8581, 1, 3,
       FlkInitPara{FLK_PATH_SENSOR_8581, 40000, 50, 720, clk, 8, 0, 0, {}}},
      {"unlisted sensor on the sensor path: all zero", 4242, 1, 0, FlkInitPara{}},
      {"only path 1 selects the sensor columns", 8581, 2, 0, generic},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    reinit(row.sensorId, row.sensorMode);
    EXPECT_EQ(adapter_->init_algo(5000, 984, 666, kClk, row.path), 0);
    const auto sent = recordOf<FlkInitPara>(FLK_CMD_INIT);
    // The bytes that cross to the algorithm, reserved and pad fields included.
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
    EXPECT_EQ(memcmp(&sent, &row.expected, sizeof(sent)), 0);
  }
}

TEST_F(AdapterTest, ExtParaScalesOnlyTheSearchRange) {
  const std::tuple<int32_t, float, int32_t> rows[] = {
      {100, 1.0f, 100},   // ratio 1: unchanged
      {9, 0.5f, 4},       // 4.5 truncates toward zero
      {100, 0.85f, 85},   // single precision gives 85, not 84
      {7, 1.5f, 10},      // 10.5 truncates
      {-7, 1.5f, -10},    // toward zero also below zero
      {100, 1e30f, 100},  // not representable: error, sent unscaled
  };
  int32_t words[kFlickerExtParaWords];  // every word distinct
  std::iota(words, words + kFlickerExtParaWords, -7);
  for (const auto& [range, ratio, scaled] : rows) {
    FlkExtParaCmd expected;
    memset(&expected, 0, sizeof(expected));
    memcpy(&expected.para, words, sizeof(words));
    expected.para.flickerSearchRange = range;
    EXPECT_EQ(adapter_->setExtPara(expected.para, ratio), 0);
    expected.para.flickerSearchRange = scaled;
    const auto sent = recordOf<FlkExtParaCmd>(FLK_CMD_SET_EXT_PARA, -1);
    EXPECT_EQ(memcmp(&sent, &expected, sizeof(sent)), 0) << ratio;
  }
  EXPECT_TRUE(fp::loggedError("out of bounds"));
}

TEST_F(AdapterTest, LogLevelRecordCarriesThePrintFunction) {
  EXPECT_EQ(adapter_->setLogLevel(7), 0);
  const auto sent = recordOf<FlkLogPara>(FLK_CMD_SET_LOG);
  EXPECT_EQ(sent.level, 7);
  EXPECT_EQ(memcmp(sent.pad, "\0\0\0\0", 4), 0);
  ASSERT_NE(sent.print, nullptr);
  // The algorithm's lines go out under "FlickerAlgo", with no file-level gate.
  sent.print("algo says %d/%s", 42, "ok");
  EXPECT_EQ(fp::messages(), std::vector<std::string>{"algo says 42/ok"});
  EXPECT_EQ(fp::logs().at(0).tag, "FlickerAlgo");
}

// Null outputs fail with an error and send nothing.
TEST_F(AdapterTest, NullOutputsFailWithAnError) {
  int value = 9;
  const std::pair<std::function<int()>, const char*> rows[] = {
      {[&] { return adapter_->getFrameRateType(nullptr); }, "[getFrameRateType] null output."},
      {[&] { return adapter_->getFlickerScore(&value, nullptr); }, "[getFlickerScore] null output"},
      {[&] { return adapter_->getFlickerScore(nullptr, &value); }, "[getFlickerScore] null output"},
      {[&] { return adapter_->getFLKStatConfig(nullptr); }, "[getFLKStatConfig] null output."},
  };
  for (const auto& [call, error] : rows) {
    fp::clearLogs();
    EXPECT_EQ(call(), -1) << error;
    EXPECT_TRUE(fp::loggedError(error)) << error;
  }
  EXPECT_EQ(value, 9);
  EXPECT_TRUE(fp::algoCalls().empty());
}

TEST_F(AdapterTest, QueriesSendNothingAndUninitSendsNoRecord) {
  _EFLKDecreaseFrameRateType type = FLK_DECREASE_FRAME_RATE_NONE;
  EXPECT_EQ(adapter_->getFrameRateType(&type), 0);
  EXPECT_EQ(type, FLK_DECREASE_FRAME_RATE_DETECT);
  EXPECT_EQ(adapter_->uninit_algo(), 0);
  EXPECT_EQ(fp::algoCalls().size(), 1u);
  EXPECT_TRUE(fp::algoCalls(FLK_CMD_UNINIT).at(0).in.empty());
}

}  // namespace
}  // namespace adapter_test
