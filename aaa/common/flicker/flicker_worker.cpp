#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR flicker_log::g_managerLevel

#include "flicker_worker.h"

#include <sys/prctl.h>

#include <cerrno>
#include <utility>

#include "cam_thread.h"
#include "flicker_log.h"
#include "flicker_utils.h"

namespace {

constexpr const char* kThreadName = "FlickerMgrThd";  // at most 15 characters
constexpr int kThreadPolicy = 0;                      // normal time-sharing policy
constexpr int kThreadPriority = -8;                   // nice value: ahead of ordinary work

// The lines of start and stop have always named the manager's step.
constexpr const char* kControl = "ThreadControl";

}  // namespace

FlickerWorker::FlickerWorker(int sensorIdx, std::function<void()> job)
    : sensor_idx_(sensorIdx), job_(std::move(job)) {
  // Ready before the first start, so that a wake before it is harmless.
  sem_ready_ = sem_init(&sem_, 0, 0) == 0;
}

FlickerWorker::~FlickerWorker() {
  if (sem_ready_)
    sem_destroy(&sem_);
}

void FlickerWorker::start() {
  if (running()) {
    FLK_LOGE_AS(kControl, "SenbsorIdx(%d), flickerMgr thread is not closed last time!!",
                sensor_idx_);
    return;
  }
  FLK_LOGD_AS(kControl, "SensorIdx(%d), create flickerMgr thread", sensor_idx_);
  // No thread waits on the semaphore now.
  if (sem_ready_)
    sem_destroy(&sem_);
  sem_ready_ = sem_init(&sem_, 0, 0) == 0;
  if (!sem_ready_) {
    char text[128];
    FLK_LOGE_AS(kControl, "SensorIdx(%d), sem_init failed: %s", sensor_idx_,
                flickerErrorText(errno, text, sizeof(text)));
    return;
  }
  running_.store(true, std::memory_order_relaxed);
  const int rc = pthread_create(&thread_, nullptr, ThreadLoop, this);
  if (rc != 0) {
    running_.store(false, std::memory_order_relaxed);
    char text[128];
    FLK_LOGE_AS(kControl, "SensorIdx(%d), pthread_create failed: %s", sensor_idx_,
                flickerErrorText(rc, text, sizeof(text)));
  }
}

void FlickerWorker::stop() {
  if (!running())
    return;
  FLK_LOGD_AS(kControl, "SensorIdx(%d), close flickerMgr thread", sensor_idx_);
  // Cleared before the post, so the woken thread leaves without another run.
  running_.store(false, std::memory_order_relaxed);
  sem_post(&sem_);
  pthread_join(thread_, nullptr);
}

void FlickerWorker::wake() {
  if (!sem_ready_)
    return;
  int pending = 0;
  sem_getvalue(&sem_, &pending);
  if (pending == 0)
    sem_post(&sem_);
}

void* FlickerWorker::ThreadLoop(void* arg) {
  FlickerWorker* self = static_cast<FlickerWorker*>(arg);
  FLK_LOGD("SensorIdx(%d), thread start", self->sensor_idx_);
  prctl(PR_SET_NAME, kThreadName, 0, 0, 0);

  NSCam::Utils::setThreadPriority(kThreadPolicy, kThreadPriority);
  int policy = 0;
  int priority = 0;
  NSCam::Utils::getThreadPriority(policy, priority);
  FLK_LOGD("policy:(expect, result)=(%d, %d), priority:(expect, result)=(%d, %d)", kThreadPolicy,
           policy, kThreadPriority, priority);

  for (;;) {
    sem_wait(&self->sem_);
    if (!self->running())
      break;
    self->job_();
  }
  FLK_LOGD("SensorIdx(%d), thread end", self->sensor_idx_);
  return nullptr;
}
