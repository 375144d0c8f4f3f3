#include "host_thread.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "cam_thread.h"

namespace {

pid_t threadId() {
  return static_cast<pid_t>(syscall(SYS_gettid));
}

bool isRealTime(int policy) {
  return policy == SCHED_FIFO || policy == SCHED_RR;
}

}  // namespace

namespace NSCam {
namespace Utils {

void setThreadPriority(int policy, int priority) {
  const pid_t tid = threadId();
  if (isRealTime(policy)) {
    sched_param param{};
    param.sched_priority = priority;
    sched_setscheduler(tid, policy, &param);  // failure shows in the read-back
    return;
  }
  sched_param param{};
  if (sched_getscheduler(tid) != policy)
    sched_setscheduler(tid, policy, &param);
  setpriority(PRIO_PROCESS, static_cast<id_t>(tid), priority);
}

void getThreadPriority(int& policy, int& priority) {
  const pid_t tid = threadId();
  policy = sched_getscheduler(tid);
  if (isRealTime(policy)) {
    sched_param param{};
    priority = sched_getparam(tid, &param) == 0 ? param.sched_priority : 0;
    return;
  }
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
  priority = (nice == -1 && errno != 0) ? 0 : nice;
}

}  // namespace Utils
}  // namespace NSCam
