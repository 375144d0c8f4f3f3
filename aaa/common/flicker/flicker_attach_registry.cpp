#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR flicker_log::g_managerLevel

#include "flicker_attach_registry.h"

#include "cam_properties.h"
#include "flicker_log.h"

namespace {
constexpr const char* kPropNotAttach = "vendor.debug.flk_not_attach";
}  // namespace

int32_t FlickerAttachRegistry::attach_count_ = 0;
std::mutex FlickerAttachRegistry::attach_lock_;

int32_t FlickerAttachRegistry::attach(FLK_ATTACH_PRIO_T prio) {
  std::lock_guard<std::mutex> lock(attach_lock_);
  if (prio == FLK_ATTACH_PRIO_LOW) {
    FLK_LOGI("No attach due to low priority sensor. SensorIdx(%d)", sensor_idx_);
    return -1;
  }
  if (attach_count_ < max_attach_num_) {
    ++attach_count_;
    is_attached_.store(true, std::memory_order_relaxed);
    FLK_LOGI("isAttach(%d), count(%d/%d). SensorIdx(%d)", 1, attach_count_, max_attach_num_,
             sensor_idx_);
    return 0;
  }
  FLK_LOGI("achieve max attach number(%d). SensorIdx(%d)", max_attach_num_, sensor_idx_);
  return -1;
}

int32_t FlickerAttachRegistry::detach() {
  std::lock_guard<std::mutex> lock(attach_lock_);
  if (!is_attached_.load(std::memory_order_relaxed)) {
    FLK_LOGI("not attach before. SensorIdx(%d)", sensor_idx_);
    return -1;
  }
  --attach_count_;
  is_attached_.store(false, std::memory_order_relaxed);
  FLK_LOGI("count(%d/%d). SensorIdx(%d)", attach_count_, max_attach_num_, sensor_idx_);
  return 0;
}

int32_t FlickerAttachRegistry::isAttach() {
  std::lock_guard<std::mutex> lock(attach_lock_);
  if (NSCam::Utils::Properties::property_get_int32(kPropNotAttach, 0) != 0)
    return 0;
  return is_attached_.load(std::memory_order_relaxed) ? 1 : 0;
}
