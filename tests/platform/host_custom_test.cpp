// The host customisation's initial frequency: the property overrides, else
// the time zone of persist.sys.timezone, TZ or the /etc/localtime link, in
// that order, gives the guess; 50 Hz without one.
#include "host_custom.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ostream>

#include "cam_flicker_custom.h"
#include "case_names.h"
#include "host_properties.h"
#include "host_test_util.h"

namespace {

struct InitCase {
  const char* name;
  const char* initHzProperty;  // null: unset
  const char* zoneProperty;    // persist.sys.timezone; null: unset
  const char* tz;              // null: unset
  const char* link;            // target of the localtime link; null: no link
  int initHz;
};

CASE_PRINTS_ITS_NAME(InitCase)

class HostInitialFrequencyTest : public ::testing::TestWithParam<InitCase> {
 protected:
  void SetUp() override {
    const char* tz = getenv("TZ");
    savedTz_ = tz != nullptr ? tz : "";
    hadTz_ = tz != nullptr;
  }
  void TearDown() override {
    flicker_host::clearProperty("host.flicker.cust.init_hz");
    flicker_host::clearProperty("persist.sys.timezone");
    flicker_host::setLocaltimeLink("");
    if (hadTz_) {
      setenv("TZ", savedTz_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
  }
  host_test::TempDir dir_;
  std::string savedTz_;
  bool hadTz_ = false;
};

TEST_P(HostInitialFrequencyTest, FollowsThePropertyThenTheTimeZone) {
  const InitCase& c = GetParam();
  if (c.initHzProperty != nullptr)
    flicker_host::setProperty("host.flicker.cust.init_hz", c.initHzProperty);
  if (c.zoneProperty != nullptr)
    flicker_host::setProperty("persist.sys.timezone", c.zoneProperty);
  if (c.tz != nullptr) {
    setenv("TZ", c.tz, 1);
  } else {
    unsetenv("TZ");
  }
  const std::string link = dir_.file("localtime");
  if (c.link != nullptr) {
    ASSERT_EQ(symlink(c.link, link.c_str()), 0);
  }
  flicker_host::setLocaltimeLink(link);
  int initHz = -1;
  int halPara = -1;
  cust_getFlickerHalPara(&initHz, &halPara);
  EXPECT_EQ(initHz, c.initHz);
  EXPECT_EQ(halPara, flicker_host::kDefaultHalPara);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostInitialFrequencyTest,
    ::testing::Values(
        // The property wins over any time zone.
        InitCase{"PropertyWins", "60", "Europe/Berlin", nullptr, nullptr, 60},
        // The zone property, first of the zone's sources, even without a guess.
        InitCase{"ZoneProperty", nullptr, "America/Chicago", "Europe/Berlin", nullptr, 60},
        InitCase{"ZonePropertyNoGuess", nullptr, "Asia/Tokyo", "America/Chicago", nullptr, 50},
        // TZ, in its forms: a name, ':' and a name, ':' and a zone file.
        InitCase{"Tz", nullptr, nullptr, "Asia/Seoul", nullptr, 60},
        InitCase{"TzColon", nullptr, nullptr, ":America/Lima", nullptr, 60},
        InitCase{"TzFile", nullptr, nullptr, ":/usr/share/zoneinfo/posix/Asia/Taipei", nullptr, 60},
        // A POSIX rule names no zone: no guess.
        InitCase{"TzRule", nullptr, nullptr, "EST5EDT,M3.2.0,M11.1.0", nullptr, 50},
        // The localtime link, absolute or relative.
        InitCase{"Link", nullptr, nullptr, nullptr, "/usr/share/zoneinfo/America/Bogota", 60},
        InitCase{"RelativeLink", nullptr, nullptr, nullptr, "../usr/share/zoneinfo/Europe/Paris",
                 50},
        // Nothing names a zone.
        InitCase{"Nothing", nullptr, nullptr, nullptr, nullptr, 50}),
    case_names::CaseName());

}  // namespace
