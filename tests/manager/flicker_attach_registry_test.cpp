// The detection slots shared by all sensors: first come, first served, each
// sensor's own limit against the shared count, and the debug property that
// hides a slot from isAttach only.
#include "flicker_attach_registry.h"

#include <gtest/gtest.h>

#include "fake_platform.h"

namespace {

namespace fp = fake_platform;

TEST(FlickerAttachRegistryTest, SlotsAreSharedFirstComeFirstServed) {
  fp::reset();
  // Sensors 0 and 1 allow two slots in all, sensor 2 three.
  FlickerAttachRegistry sensors[] = {{0, 2}, {1, 2}, {2, 3}};
  enum Op { kAttach, kAttachLow, kDetach };
  struct Step {
    int sensor;
    Op op;
    int32_t rc;
    const char* log;  // the line that reports the step
  } steps[] = {
      {0, kAttachLow, -1, "No attach due to low priority sensor. SensorIdx(0)"},
      {0, kAttach, 0, "isAttach(1), count(1/2). SensorIdx(0)"},
      {1, kAttach, 0, "isAttach(1), count(2/2). SensorIdx(1)"},
      // Sensor 2's own limit of 3 lets it take a third slot...
      {2, kAttach, 0, "isAttach(1), count(3/3). SensorIdx(2)"},
      // ...and a second one on itself is refused only by the count.
      {2, kAttach, -1, "achieve max attach number(3). SensorIdx(2)"},
      {1, kDetach, 0, "count(2/2). SensorIdx(1)"},
      {1, kDetach, -1, "not attach before. SensorIdx(1)"},  // the count does not move
      // A holder attaching again takes a second slot; one detach gives one back.
      {0, kAttach, -1, "achieve max attach number(2). SensorIdx(0)"},
      {2, kAttach, 0, "isAttach(1), count(3/3). SensorIdx(2)"},
      {2, kDetach, 0, "count(2/3). SensorIdx(2)"},
      {2, kDetach, -1, "not attach before. SensorIdx(2)"},
      {0, kDetach, 0, "count(1/2). SensorIdx(0)"},
  };
  for (const Step& s : steps) {
    FlickerAttachRegistry& r = sensors[s.sensor];
    fp::clearLogs();
    const int32_t rc = s.op == kDetach      ? r.detach()
                       : s.op == kAttachLow ? r.attach(FLK_ATTACH_PRIO_LOW)
                                            : r.attach(FLK_ATTACH_PRIO_MEDIUM);
    EXPECT_EQ(rc, s.rc) << s.log;
    EXPECT_EQ(fp::messages(),
              std::vector<std::string>{std::string("[") + (s.op == kDetach ? "detach" : "attach") +
                                       "] " + s.log});
  }
  // The slot left over from the double attach: sensor 1 can attach once.
  EXPECT_EQ(sensors[1].attach(FLK_ATTACH_PRIO_HIGH), 0);
  EXPECT_EQ(sensors[0].attach(FLK_ATTACH_PRIO_HIGH), -1);
  EXPECT_EQ(sensors[1].detach(), 0);
}

TEST(FlickerAttachRegistryTest, PropertyHidesTheSlotFromIsAttachOnly) {
  fp::reset();
  FlickerAttachRegistry sensor(3, 20);  // room beside slots other tests leave taken
  EXPECT_EQ(sensor.isAttach(), 0);
  ASSERT_EQ(sensor.attach(FLK_ATTACH_PRIO_MEDIUM), 0);
  EXPECT_EQ(sensor.isAttach(), 1);
  fp::setProperty("vendor.debug.flk_not_attach", 1);
  EXPECT_EQ(sensor.isAttach(), 0);
  EXPECT_TRUE(sensor.attached());  // the per-frame check still sees the slot
  EXPECT_EQ(sensor.detach(), 0);
}

}  // namespace
