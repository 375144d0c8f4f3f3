// The host property store: the phone's file format, integer reads as the
// phone does them, and the precedence of file, environment and API values.
#include "host_properties.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "cam_properties.h"
#include "host_log.h"
#include "host_test_util.h"

namespace {

using NSCam::Utils::Properties::property_get_int32;
using NSCam::Utils::Properties::property_get_int64;

constexpr int32_t kDefault = -77;

// Line numbers matter: the malformed lines are reported by number.
const char kPropertyFile[] =
    "# a comment line\n"                     // 1
    "\n"                                     // 2
    "   \t  \n"                              // 3
    "vendor.dec=12\n"                        // 4
    "  vendor.spaced  =   34   \n"           // 5
    "vendor.hex=0x1F\n"                      // 6
    "vendor.neg=-5\n"                        // 7
    "vendor.text=abc\n"                      // 8
    "vendor.trail=12abc\n"                   // 9
    "vendor.int32max=2147483647\n"           // 10
    "vendor.over32=2147483648\n"             // 11
    "vendor.under32=-2147483649\n"           // 12
    "vendor.int64max=9223372036854775807\n"  // 13
    "vendor.over64=9223372036854775808\n"    // 14
    "a line without an equals sign\n"        // 15: malformed
    " = 5\n"                                 // 16: malformed, empty name
    "bad name = 3\n"                         // 17: malformed, space in the name
    "vendor.empty=\n"                        // 18
    "vendor.dup=1\n"                         // 19
    "vendor.dup=2\n"                         // 20
    "vendor.env=1\n"                         // 21
    "vendor.octal=010\n"                     // 22
    "vendor.hash=#1\n"                       // 23: '#' inside a value is not a comment
    "vendor.last=9";                         // 24: no newline at the end

class HostPropertiesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    file_ = dir_.file("props.txt");
    logFile_ = dir_.file("log.txt");
    host_test::writeFile(file_, kPropertyFile);
    ASSERT_TRUE(flicker_host::setDebugLogFile(logFile_));
    setenv("FLICKER_PROPS", file_.c_str(), 1);
    setenv("FLICKER_PROP_vendor_env", "7", 1);
    flicker_host::reloadProperties();
  }
  void TearDown() override {
    unsetenv("FLICKER_PROPS");
    unsetenv("FLICKER_PROP_vendor_env");
    flicker_host::reloadProperties();
    flicker_host::setDebugLogFile("");
  }

  host_test::TempDir dir_;
  std::string file_;
  std::string logFile_;
};

TEST_F(HostPropertiesTest, IntegerReadsOfTheFileFollowThePhone) {
  struct Row {
    const char* name;
    int32_t expected32;
    int64_t expected64;
  } rows[] = {
      {"vendor.dec", 12, 12},                         // plain value
      {"vendor.spaced", 34, 34},                      // spaces around name and value are trimmed
      {"vendor.hex", 31, 31},                         // 0x hex
      {"vendor.neg", -5, -5},                         // signed
      {"vendor.text", kDefault, kDefault},            // not a number: the caller's default
      {"vendor.trail", kDefault, kDefault},           // trailing garbage rejected
      {"vendor.int32max", 2147483647, 2147483647LL},  // int32 edge is kept
      {"vendor.over32", kDefault, 2147483648LL},      // too big for int32 only
      {"vendor.under32", kDefault, -2147483649LL},    // too small for int32 only
      {"vendor.int64max", kDefault, 9223372036854775807LL},  // int64 edge is kept
      {"vendor.over64", kDefault, kDefault},                 // too big for both
      {"vendor.empty", kDefault, kDefault},                  // empty value
      {"vendor.dup", 2, 2},                                  // the later line wins
      {"vendor.env", 7, 7},                                  // the environment wins
      {"vendor.octal", 8, 8},                                // leading zero: octal
      {"vendor.hash", kDefault, kDefault},                   // "#1" is a value, not 1
      {"vendor.last", 9, 9},                                 // last line without newline
      {"vendor.missing", kDefault, kDefault},                // never set
      {"bad", kDefault, kDefault},                           // malformed lines set nothing
  };
  for (const Row& row : rows) {
    EXPECT_EQ(property_get_int32(row.name, kDefault), row.expected32) << row.name;
    EXPECT_EQ(property_get_int64(row.name, kDefault), row.expected64) << row.name;
  }
}

TEST_F(HostPropertiesTest, MalformedLinesAreReportedWithFileAndLine) {
  EXPECT_EQ(property_get_int32("vendor.dec", 0), 12);  // loading happened
  const std::string log = host_test::readFile(logFile_);
  for (const int line : {15, 16, 17}) {
    EXPECT_NE(log.find(file_ + ":" + std::to_string(line) + ": malformed"), std::string::npos)
        << "line " << line << " in:\n"
        << log;
  }
  // Comment, blank and valid lines are not reported.
  for (const int line : {1, 2, 3, 4, 18, 24}) {
    EXPECT_EQ(log.find(file_ + ":" + std::to_string(line) + ":"), std::string::npos) << line;
  }
}

TEST_F(HostPropertiesTest, ApiValuesWinAndClearHidesEveryLayer) {
  flicker_host::setProperty("vendor.env", int64_t{3});
  EXPECT_EQ(property_get_int32("vendor.env", kDefault), 3);  // API over environment
  flicker_host::setProperty("vendor.dec", "0x10");
  EXPECT_EQ(property_get_int32("vendor.dec", kDefault), 16);  // API over file
  flicker_host::clearProperty("vendor.env");
  flicker_host::clearProperty("vendor.dec");
  EXPECT_EQ(property_get_int32("vendor.env", kDefault), kDefault);
  EXPECT_EQ(property_get_int32("vendor.dec", kDefault), kDefault);
  std::string text;
  EXPECT_FALSE(flicker_host::getProperty("vendor.dec", &text));
  flicker_host::reloadProperties();  // drops the API values again
  EXPECT_EQ(property_get_int32("vendor.env", kDefault), 7);
  EXPECT_EQ(property_get_int32("vendor.dec", kDefault), 12);
  EXPECT_TRUE(flicker_host::getProperty("vendor.text", &text));
  EXPECT_EQ(text, "abc");
}

TEST_F(HostPropertiesTest, MissingFileLeavesOnlyTheOtherLayers) {
  EXPECT_FALSE(flicker_host::loadPropertyFile(dir_.file("absent.txt")));
  EXPECT_EQ(property_get_int32("vendor.dec", kDefault), kDefault);
  EXPECT_EQ(property_get_int32("vendor.env", kDefault), 7);
  EXPECT_NE(host_test::readFile(logFile_).find("absent.txt"), std::string::npos);
  EXPECT_EQ(property_get_int32(nullptr, kDefault), kDefault);  // a null key is simply missing
}

TEST(HostPropertyNames, EnvironmentNamesReplaceEveryNonWordCharacter) {
  EXPECT_EQ(flicker_host::propertyEnvName("vendor.debug.flk_dump"),
            "FLICKER_PROP_vendor_debug_flk_dump");
  EXPECT_EQ(flicker_host::propertyEnvName("a-b.c9"), "FLICKER_PROP_a_b_c9");
}

}  // namespace
