// The host property store: the phone's file format, integer reads as the
// phone does them, the precedence of file, environment and API values.
#include "host_properties.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>

#include "cam_properties.h"
#include "host_test_util.h"

namespace {

using NSCam::Utils::Properties::property_get_int32;
using NSCam::Utils::Properties::property_get_int64;

constexpr int32_t kDefault = -77;

// Line numbers matter: the malformed lines are reported by number.
const char kPropertyFile[] =
    "# a comment line\n"               // 1
    "\n"                               // 2
    "  vendor.spaced  =   34   \n"     // 3
    "vendor.hex=0x1F\n"                // 4
    "vendor.text=abc\n"                // 5
    "vendor.over32=2147483648\n"       // 6
    "a line without an equals sign\n"  // 7: malformed
    " = 5\n"                           // 8: malformed, empty name
    "bad name = 3\n"                   // 9: malformed, space in the name
    "vendor.dup=1\n"                   // 10
    "vendor.dup=2\n"                   // 11
    "vendor.env=1\n"                   // 12
    "vendor.hash=#1\n"                 // 13: '#' inside a value is not a comment
    "vendor.last=-9";                  // 14: no newline at the end

class HostPropertiesTest : public host_test::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    host_test::writeFile(file_, kPropertyFile);
    setenv("FLICKER_PROPS", file_.c_str(), 1);
    setenv("FLICKER_PROP_vendor_env", "7", 1);  // vendor.env, every non-word character as '_'
    flicker_host::reloadProperties();
  }
  void TearDown() override {
    unsetenv("FLICKER_PROPS");
    unsetenv("FLICKER_PROP_vendor_env");
    flicker_host::reloadProperties();
    HostTest::TearDown();
  }

  std::string file_ = dir_.file("props.txt");
};

TEST_F(HostPropertiesTest, FileValuesReadLikeThePhone) {
  // Name, int32 read, int64 read (kDefault: the caller's default).
  const std::tuple<const char*, int32_t, int64_t> rows[] = {
      {"vendor.spaced", 34, 34},                  // spaces around name and value are trimmed
      {"vendor.hex", 31, 31},                     // 0x hex
      {"vendor.last", -9, -9},                    // signed, last line without newline
      {"vendor.text", kDefault, kDefault},        // not a number: the caller's default
      {"vendor.over32", kDefault, 2147483648LL},  // too big for int32 only
      {"vendor.dup", 2, 2},                       // the later line wins
      {"vendor.env", 7, 7},                       // the environment wins over the file
      {"vendor.hash", kDefault, kDefault},        // "#1" is a value, not 1
      {"bad", kDefault, kDefault},                // malformed lines set nothing
      {nullptr, kDefault, kDefault},              // a null key is simply missing
  };
  for (const auto& [name, expected32, expected64] : rows) {
    EXPECT_EQ(property_get_int32(name, kDefault), expected32) << name;
    EXPECT_EQ(property_get_int64(name, kDefault), expected64) << name;
  }
  // Only the malformed lines are reported, with file and line.
  const std::string log = logSince();
  for (int line = 1; line <= 14; ++line) {
    const bool reported =
        log.find(file_ + ":" + std::to_string(line) + ": malformed") != std::string::npos;
    EXPECT_EQ(reported, line >= 7 && line <= 9) << "line " << line << " in:\n" << log;
  }
}

TEST_F(HostPropertiesTest, ApiValuesWinUntilTheNextReload) {
  flicker_host::setProperty("vendor.env", int64_t{3});
  flicker_host::setProperty("vendor.hex", "0x10");
  flicker_host::clearProperty("vendor.dup");
  EXPECT_EQ(property_get_int32("vendor.env", kDefault), 3);         // API over environment
  EXPECT_EQ(property_get_int32("vendor.hex", kDefault), 16);        // API over file
  EXPECT_EQ(property_get_int32("vendor.dup", kDefault), kDefault);  // cleared hides the file
  flicker_host::reloadProperties();
  EXPECT_EQ(property_get_int32("vendor.env", kDefault), 7);
  EXPECT_EQ(property_get_int32("vendor.dup", kDefault), 2);
  EXPECT_FALSE(flicker_host::loadPropertyFile(dir_.file("absent.txt")));
  EXPECT_EQ(property_get_int32("vendor.hex", kDefault), kDefault);  // the file's values are gone
  EXPECT_EQ(property_get_int32("vendor.env", kDefault), 7);
  EXPECT_NE(logSince().find("absent.txt"), std::string::npos);
}

}  // namespace
