#include "file_access_limits.h"

#include <linux/capability.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace reliability {

namespace {

bool capGet(__user_cap_data_struct data[2]) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  return syscall(SYS_capget, &header, data) == 0;
}

bool capSet(__user_cap_data_struct data[2]) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  return syscall(SYS_capset, &header, data) == 0;
}

// Whether this thread can create an entry in a folder of mode 0555.
bool permissionsBypassed() {
  char dir[] = "/tmp/flicker_perm_probe_XXXXXX";
  if (mkdtemp(dir) == nullptr)
    return true;
  chmod(dir, 0555);
  const std::string probe = std::string(dir) + "/probe";
  const bool created = mkdir(probe.c_str(), 0700) == 0;
  if (created)
    rmdir(probe.c_str());
  chmod(dir, 0700);
  rmdir(dir);
  return created;
}

}  // namespace

FileAccessLimits::~FileAccessLimits() {
  if (capsDropped_) {
    __user_cap_data_struct data[2];
    if (capGet(data)) {
      data[0].effective = savedEffective_[0];
      data[1].effective = savedEffective_[1];
      capSet(data);
    }
  }
  if (sizeLimited_) {
    setrlimit(RLIMIT_FSIZE, &savedLimit_);
    signal(SIGXFSZ, savedXfsz_);
  }
}

bool FileAccessLimits::dropFileOverride(std::string* why) {
  __user_cap_data_struct data[2];
  if (!capGet(data)) {
    *why = std::string("capget: ") + strerror(errno);
    return false;
  }
  savedEffective_[0] = data[0].effective;
  savedEffective_[1] = data[1].effective;
  const uint32_t bypass =
      CAP_TO_MASK(CAP_DAC_OVERRIDE) | CAP_TO_MASK(CAP_DAC_READ_SEARCH) | CAP_TO_MASK(CAP_FOWNER);
  data[0].effective &= ~bypass;
  if (!capSet(data)) {
    *why = std::string("capset: ") + strerror(errno);
    return false;
  }
  capsDropped_ = true;
  if (permissionsBypassed()) {
    *why = "file permissions are still bypassed after dropping the override capabilities";
    return false;
  }
  return true;
}

bool FileAccessLimits::limitFileSize(uint64_t bytes, std::string* why) {
  if (getrlimit(RLIMIT_FSIZE, &savedLimit_) != 0) {
    *why = std::string("getrlimit: ") + strerror(errno);
    return false;
  }
  savedXfsz_ = signal(SIGXFSZ, SIG_IGN);
  struct rlimit limit = savedLimit_;
  limit.rlim_cur = static_cast<rlim_t>(bytes);
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
    signal(SIGXFSZ, savedXfsz_);
    *why = std::string("setrlimit: ") + strerror(errno);
    return false;
  }
  sizeLimited_ = true;
  return true;
}

}  // namespace reliability
