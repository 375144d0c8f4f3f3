// FlickerAttachRegistry: one sensor's hold on the process-wide detection
// slots. Only a limited number of sensors may detect at a time (the product's
// cust_getMaxAttachNum, read once per sensor); a sensor must hold a slot
// before its per-frame calculation does anything.
//
// Requests are first come, first served: priority 0 is never granted, every
// other priority competes equally, and a holder is never displaced. attach
// does not test whether the sensor holds a slot already: a second attach
// takes a second slot, and one detach gives back only one (callers attach
// only when attached() is false).
//
// Threading: attach, detach and isAttach take the process-wide attach_lock_
// (the manager calls them with its instance lock held: that lock first, then
// attach_lock_, never the other way round). attached() reads the sensor's
// flag without a lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

// Priority of an attach request: 0 is never granted; any other value competes
// first come, first served. The manager asks with FLK_ATTACH_PRIO_MEDIUM.
enum FLK_ATTACH_PRIO_T : int32_t {
  FLK_ATTACH_PRIO_LOW = 0,
  FLK_ATTACH_PRIO_HIGH = 1,
  FLK_ATTACH_PRIO_MEDIUM = 2,
};

class FlickerAttachRegistry {
 public:
  FlickerAttachRegistry(int sensorIdx, int maxAttachNum)
      : sensor_idx_(sensorIdx), max_attach_num_(maxAttachNum) {}

  // 0: a slot taken; -1: refused (low priority, or all slots taken).
  int32_t attach(FLK_ATTACH_PRIO_T prio);
  // 0: the slot given back; -1: this sensor held none.
  int32_t detach();
  // 1 while this sensor holds a slot, unless the debug property
  // "vendor.debug.flk_not_attach" hides it (from this query only).
  int32_t isAttach();
  bool attached() const { return is_attached_.load(std::memory_order_relaxed); }

 private:
  const int32_t sensor_idx_;
  const int32_t max_attach_num_;  // compared against the shared count
  std::atomic<bool> is_attached_{false};

  static int32_t attach_count_;  // slots taken by all sensors; guarded by attach_lock_
  static std::mutex attach_lock_;
};
