// Host customisation: documented defaults, each replaced by its host-only
// property.
#include "host_custom.h"

#include <gtest/gtest.h>

#include "cam_flicker_custom.h"
#include "host_properties.h"

namespace {

int maxAttach() {
  return cust_getMaxAttachNum();
}
int detectFrequency() {
  return cust_getFlickerDetectFrequency();
}
int initHz() {
  int hz = 0;
  cust_getFlickerHalPara(&hz, nullptr);  // either output may be left out
  return hz;
}
int halPara() {
  int para = 0;
  cust_getFlickerHalPara(nullptr, &para);
  return para;
}
int binning() {
  return cust_getSensorBinningRatio(3, 5);
}

struct Row {
  const char* property;
  int (*read)();
  int hostDefault;
  int overridden;  // value set through the property
};

class HostCustomTest : public ::testing::TestWithParam<Row> {
 protected:
  void TearDown() override { flicker_host::reloadProperties(); }
};

TEST_P(HostCustomTest, DefaultThenPropertyOverride) {
  const Row& row = GetParam();
  flicker_host::clearProperty(row.property);
  EXPECT_EQ(row.read(), row.hostDefault);
  flicker_host::setProperty(row.property, int64_t{row.overridden});
  EXPECT_EQ(row.read(), row.overridden);
  flicker_host::setProperty(row.property, "not a number");  // unreadable: the default again
  EXPECT_EQ(row.read(), row.hostDefault);
}

INSTANTIATE_TEST_SUITE_P(Overrides, HostCustomTest,
                         ::testing::Values(Row{"host.flicker.cust.max_attach", maxAttach, 2, 1},
                                           Row{"host.flicker.cust.detect_freq", detectFrequency, 3,
                                               1},
                                           Row{"host.flicker.cust.init_hz", initHz, 50, 60},
                                           Row{"host.flicker.cust.hal_para", halPara, 70000, 12345},
                                           Row{"host.flicker.cust.sensor_binning", binning, 1, 2}));

}  // namespace
