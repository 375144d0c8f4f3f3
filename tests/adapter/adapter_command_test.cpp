// The algorithm commands, checked byte for byte as the algorithm receives them.
#include <cmath>

#include "adapter_test_support.h"

namespace adapter_test {
namespace {

FlkInitPara initRecord(int32_t path, uint32_t line, int32_t rows, int32_t cols, double clk,
                       int32_t param) {
  FlkInitPara para;
  memset(&para, 0, sizeof(para));
  para.sensorPath = path;
  para.lineLength = line;
  para.statLineCount = rows;
  para.statWidth = cols;
  para.pixelClk = clk;
  para.sensorParam = param;
  return para;
}

TEST_F(AdapterTest, InitAlgoRecordPerSensorPathAndMode) {
  const long kClk = 0x1'2345'6789L;  // above 32 bits: the double keeps it all
  FlkInitPara zero;
  memset(&zero, 0, sizeof(zero));
  struct Row {
    const char* what;
    int sensorId;
    int path;
    int sensorMode;
    FlkInitPara expected;
  };
  const Row rows[] = {
      {"generic path ignores the sensor id", 1398, 0, 0,
       initRecord(FLK_PATH_GENERIC, 5000, 3 * 984, 666, static_cast<double>(kClk), 0)},
      {"sensor 1398", 1398, 1, 0, initRecord(FLK_PATH_SENSOR_1398, 5000 * 22, 96, 2, kClk, 0)},
      {"sensor 8581, mode 0", 8581, 1, 0,
       initRecord(FLK_PATH_SENSOR_8581, 5000 * 8, 67, 720, kClk, 8)},
      {"sensor 8581, other mode", 8581, 1, 3,
       initRecord(FLK_PATH_SENSOR_8581, 5000 * 8, 50, 720, kClk, 8)},
      {"unlisted sensor on the sensor path: all zero", 4242, 1, 0, zero},
      {"only path 1 selects the sensor columns", 8581, 2, 0,
       initRecord(FLK_PATH_GENERIC, 5000, 3 * 984, 666, static_cast<double>(kClk), 0)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    reinit(row.sensorId);
    adapter_->getSensorMode(row.sensorMode, 0, nullptr);
    EXPECT_EQ(adapter_->init_algo(5000, 984, 666, kClk, row.path), 0);
    const auto sent = recordOf<FlkInitPara>(FLK_CMD_INIT);
    EXPECT_EQ(memcmp(&sent, &row.expected, sizeof(sent)), 0);
  }
}

TEST_F(AdapterTest, InitAlgoKeepsLowClockBitsAndLineLengthForDetection) {
  adapter_->init_algo(0xFFFF'FFF0u, 100, 200, 0x7'0000'0005L, 0);
  adapter_->detectFlicker();
  const auto para = recordOf<FlkDetectPara>(FLK_CMD_DETECT);
  EXPECT_EQ(para.pixelClk, 5);
  EXPECT_EQ(para.lineLength, 0xFFFF'FFF0u);
  // The 1398 factor wraps in 32 bits rather than overflowing.
  reinit(1398);
  adapter_->init_algo(0x1000'0000u, 0, 0, 1, 1);
  EXPECT_EQ(recordOf<FlkInitPara>(FLK_CMD_INIT).lineLength, 0x1000'0000u * 22u);
}

TEST_F(AdapterTest, InitAlgoLogsOnlyForTheGenericAndThe1398Paths) {
  fake_platform::setProperty("vendor.debug.flicker_mgr.log.level", 2);
  reinit(1398);
  adapter_->init_algo(1, 1, 1, 1, 1);
  EXPECT_TRUE(fake_platform::logged("[init_algo] flicker_init_SONY"));
  adapter_->init_algo(1, 1, 1, 1, 0);
  EXPECT_EQ(fake_platform::countLogged("[init_algo] flicker_init"), 2);
  reinit(8581);
  adapter_->init_algo(1, 1, 1, 1, 1);
  EXPECT_EQ(fake_platform::countLogged("flicker_init"), 0);
}

TEST_F(AdapterTest, FrequencyCodesOfStateAndQueueCommands) {
  struct Row {
    int hz;
    int32_t code;
  };
  const Row rows[] = {
      {60, FLK_FREQ_60HZ},   // 60 Hz
      {50, FLK_FREQ_50HZ},   // 50 Hz
      {0, FLK_FREQ_NONE},    // not yet known
      {100, FLK_FREQ_NONE},  // anything else
      {-50, FLK_FREQ_NONE},  // negative
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.hz);
    fake_platform::clearAlgoCalls();
    EXPECT_EQ(adapter_->setFlickerState(row.hz), 0);
    EXPECT_EQ(adapter_->resetQueue(row.hz), 0);
    const auto calls = fake_platform::algoCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].cmd, FLK_CMD_SET_STATE);
    EXPECT_EQ(calls[1].cmd, FLK_CMD_RESET_QUEUE);
    for (const auto& call : calls) {
      int32_t code = -1;
      ASSERT_EQ(call.in.size(), sizeof(code));
      memcpy(&code, call.in.data(), sizeof(code));
      EXPECT_EQ(code, row.code);
    }
  }
}

FlickerExtPara extPara(int32_t range) {
  FlickerExtPara para;
  int32_t words[kFlickerExtParaWords];
  for (int i = 0; i < kFlickerExtParaWords; ++i) {
    words[i] = 1000 + i * 17 - 300;
  }
  memcpy(&para, words, sizeof(para));
  para.flickerSearchRange = range;
  return para;
}

TEST_F(AdapterTest, ExtParaScalesOnlyTheSearchRange) {
  struct Row {
    int32_t range;
    float ratio;
    int32_t expected;
    bool logged;
  };
  const Row rows[] = {
      {100, 1.0f, 100, false},   // ratio 1: unchanged, no log
      {9, 0.5f, 4, true},        // 4.5 truncates toward zero
      {100, 0.85f, 85, true},    // single precision gives 85, not 84
      {7, 1.5f, 10, true},       // 10.5 truncates
      {-7, 1.5f, -10, true},     // toward zero also below zero
      {100, 1e30f, 100, false},  // not representable: error, sent unscaled
  };
  fake_platform::setProperty("vendor.debug.flicker_mgr.log.level", 2);
  reinit(kGenericSensorId);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.ratio);
    fake_platform::clearAlgoCalls();
    fake_platform::clearLogs();
    const FlickerExtPara given = extPara(row.range);
    EXPECT_EQ(adapter_->setExtPara(given, row.ratio), 0);
    const auto sent = recordOf<FlkExtParaCmd>(FLK_CMD_SET_EXT_PARA);
    FlkExtParaCmd expected;
    memset(&expected, 0, sizeof(expected));
    expected.para = given;
    expected.para.flickerSearchRange = row.expected;
    EXPECT_EQ(memcmp(&sent, &expected, sizeof(sent)), 0);
    EXPECT_EQ(fake_platform::logged("[setExtPara] ratio("), row.logged);
  }
  EXPECT_TRUE(fake_platform::loggedError("out of bounds"));
}

TEST_F(AdapterTest, LogLevelRecordCarriesThePrintFunction) {
  EXPECT_EQ(adapter_->setLogLevel(7), 0);
  const auto sent = recordOf<FlkLogPara>(FLK_CMD_SET_LOG);
  EXPECT_EQ(sent.level, 7);
  EXPECT_EQ(memcmp(sent.pad, "\0\0\0\0", 4), 0);
  ASSERT_NE(sent.print, nullptr);

  // The algorithm's lines: tag "FlickerAlgo", no file-level gate, but the
  // framework's details level and mask apply.
  struct Row {
    unsigned details;
    unsigned mask;
    bool shown;
  };
  const Row rows[] = {
      {5, 0x801000, true},   // default framework state, file level 0
      {4, 0x801000, false},  // details level too low
      {5, 0x800000, false},  // one mask bit missing
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.details);
    fake_platform::clearLogs();
    fake_platform::setLogFramework(0xB, row.details, row.mask);
    sent.print("algo says %d/%s", 42, "ok");
    bool found = false;
    for (const auto& line : fake_platform::logs()) {
      if (line.tag == "FlickerAlgo" && line.text.find("algo says 42/ok") != std::string::npos) {
        found = true;
      }
    }
    EXPECT_EQ(found, row.shown);
  }
}

TEST_F(AdapterTest, QueriesWithoutCommands) {
  _EFLKDecreaseFrameRateType type = FLK_DECREASE_FRAME_RATE_NONE;
  EXPECT_EQ(adapter_->getFrameRateType(&type), 0);
  EXPECT_EQ(type, FLK_DECREASE_FRAME_RATE_DETECT);
  EXPECT_EQ(adapter_->setTwinInfo(2, 10, 20), 0);
  adapter_->init_algo(1, 1, 1, 1, 0);
  type = FLK_DECREASE_FRAME_RATE_NONE;
  EXPECT_EQ(adapter_->getFrameRateType(&type), 0);  // still 1 after a command
  EXPECT_EQ(type, FLK_DECREASE_FRAME_RATE_DETECT);
  EXPECT_EQ(fake_platform::algoCalls().size(), 1u);  // only init_algo sent anything

  EXPECT_EQ(adapter_->uninit_algo(), 0);
  const auto calls = fake_platform::algoCalls(FLK_CMD_UNINIT);
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_TRUE(calls[0].in.empty());
}

TEST_F(AdapterTest, NullOutputsAreRejected) {
  int score = 123;
  EXPECT_EQ(adapter_->getFrameRateType(nullptr), -1);
  EXPECT_EQ(adapter_->getFlickerScore(&score, nullptr), -1);
  EXPECT_EQ(adapter_->getFlickerScore(nullptr, &score), -1);
  EXPECT_EQ(score, 123);
  EXPECT_EQ(adapter_->getFLKStatConfig(nullptr), -1);
  EXPECT_TRUE(fake_platform::loggedError("[getFLKStatConfig] null output."));
}

TEST_F(AdapterTest, StatConfigWords) {
  flk_stat_config config;
  memset(&config, 0xAB, sizeof(config));
  EXPECT_EQ(adapter_->getFLKStatConfig(&config), 0);
  const int32_t expected[17] = {4,      0,      20,     3,      25,     6,      3,    16,   0x1414,
                                0x1D1D, 0x2A2A, 0x3E3E, 0x5858, 0x7E7E, 0xB4B4, 2630, 65535};
  EXPECT_EQ(memcmp(config.words, expected, sizeof(expected)), 0);
}

}  // namespace
}  // namespace adapter_test
