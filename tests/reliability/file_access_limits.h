// FileAccessLimits: scoped ways to make the file system refuse the library's
// writes without a mount, for the dump fault tests.
//
//  - dropFileOverride() clears the calling thread's capabilities that bypass
//    file permissions (as root, a read-only mode is otherwise ignored).
//    Threads started afterwards by this thread inherit the drop; the
//    destructor raises the capabilities again on the calling thread.
//  - limitFileSize(bytes) sets the process's file-size limit (RLIMIT_FSIZE)
//    with SIGXFSZ ignored, so a write past `bytes` fails with EFBIG as on a
//    full disk. Process-wide; restored by the destructor.
//
// Threading: construct and destroy on the same thread; not copyable.
#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace reliability {

class FileAccessLimits {
 public:
  FileAccessLimits() = default;
  ~FileAccessLimits();
  FileAccessLimits(const FileAccessLimits&) = delete;
  FileAccessLimits& operator=(const FileAccessLimits&) = delete;

  // False (with the reason) when this thread may still bypass permissions.
  bool dropFileOverride(std::string* why);
  bool limitFileSize(uint64_t bytes, std::string* why);

 private:
  bool capsDropped_ = false;
  uint32_t savedEffective_[2] = {0, 0};
  bool sizeLimited_ = false;
  struct rlimit savedLimit_ = {};
  void (*savedXfsz_)(int) = nullptr;
};

}  // namespace reliability
