// Thread scheduling helpers of the camera framework. Both act on the calling
// thread. Policy 0 is the normal time-sharing policy, where the priority is
// the thread's nice value.
#pragma once

namespace NSCam {
namespace Utils {

void setThreadPriority(int policy, int priority);
void getThreadPriority(int& policy, int& priority);

}  // namespace Utils
}  // namespace NSCam
