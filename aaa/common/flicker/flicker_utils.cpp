#define LOG_TAG "FlickerMgr"
#define FLK_LOG_LEVEL_VAR g_utilsLogLevel

#include "flicker_utils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "cam_string.h"
#include "flicker_log.h"

namespace {

// Only errors are logged here today; the level gates any debug line added later.
[[maybe_unused]] flicker_log::FileLevel g_utilsLogLevel{0};

constexpr size_t kCounterPathSize = 500;  // resolved counter-file paths
constexpr mode_t kDirMode = 0770;

// Copies `text` (of `length` bytes) into `out`; false when it had to be cut.
bool copyBounded(const char* text, size_t length, char* out, size_t size) {
  const bool fits = length < size;
  const size_t n = fits ? length : size - 1;
  memcpy(out, text, n);
  out[n] = '\0';
  return fits;
}

// The target of `path` if it is a symbolic link, else `path` itself. A
// relative link target is taken relative to the link's folder, as the file
// system does. Returns false when the result had to be cut to `size`.
bool resolvePath(const char* path, char* out, size_t size) {
  struct stat info;
  if (lstat(path, &info) != 0 || !S_ISLNK(info.st_mode)) {
    return copyBounded(path, strlen(path), out, size);
  }
  char target[PATH_MAX];
  const ssize_t length = readlink(path, target, sizeof(target) - 1);
  if (length < 0) {
    return copyBounded(path, strlen(path), out, size);
  }
  target[length] = '\0';
  const char* slash = strrchr(path, '/');
  if (target[0] == '/' || slash == nullptr) {
    return copyBounded(target, static_cast<size_t>(length), out, size);
  }
  const size_t dirLength = static_cast<size_t>(slash - path) + 1;
  if (dirLength + static_cast<size_t>(length) >= size) {
    copyBounded(path, dirLength, out, size);
    return false;
  }
  memcpy(out, path, dirLength);
  memcpy(out + dirLength, target, static_cast<size_t>(length) + 1);
  return true;
}

// Resolves a counter-file path; a path that does not fit is an error rather
// than a silently different file.
bool resolveCounterPath(const char* path, char* out) {
  if (resolvePath(path, out, kCounterPathSize)) {
    return true;
  }
  FLK_LOGE("path too long(%zu): %s", strlen(path), path);
  return false;
}

void closeLogged(FILE* file) {
  if (fclose(file) != 0) {
    FLK_LOGE("fclose error(%d).", -1);
  }
}

// The counter token as a non-negative int; false for anything else.
bool parseCount(const char* token, int* value) {
  errno = 0;
  char* end = nullptr;
  const long parsed = strtol(token, &end, 10);
  if (errno != 0 || end == token || *end != '\0' || parsed < 0 || parsed > INT_MAX) {
    return false;
  }
  *value = static_cast<int>(parsed);
  return true;
}

}  // namespace

void _get_canonical_filepath(const char* path, char* out, unsigned long size) {
  // A zero size leaves no room even for the terminator, so nothing is written.
  if (out == nullptr || size == 0) {
    return;
  }
  if (path == nullptr) {
    out[0] = '\0';
    return;
  }
  (void)resolvePath(path, out, size);
}

int getFileCount(const char* path, int* count, int defaultValue) {
  if (path == nullptr || count == nullptr) {
    return -1;
  }
  *count = defaultValue;
  char resolved[kCounterPathSize];
  if (!resolveCounterPath(path, resolved)) {
    return -1;
  }
  FILE* file = fopen(resolved, "rb");
  if (file == nullptr) {
    return -1;
  }

  char token[16] = {};
  const int scanned = fscanf(file, "%15s", token);
  if (scanned == 1 && token[0] != '\0' && isInt(token)) {
    closeLogged(file);
    int value = 0;
    if (!parseCount(token, &value)) {
      return -1;  // negative or beyond int: keep the default
    }
    *count = value;
    return 0;
  }
  FLK_LOGE("fscanf error(%d).", scanned);
  closeLogged(file);
  return -1;
}

int setFileCount(const char* path, int count) {
  if (path == nullptr) {
    return -1;
  }
  char resolved[kCounterPathSize];
  if (!resolveCounterPath(path, resolved)) {
    return -1;
  }
  FILE* file = fopen(resolved, "wt");
  if (file == nullptr) {
    return -1;
  }
  const int written = fprintf(file, "%d", count);
  if (written < 0) {
    FLK_LOGE("fprintf error(%d).", written);
  }
  closeLogged(file);
  return 0;
}

int createDir(const char* path) {
  if (path == nullptr) {
    return -1;
  }
  return mkdir(path, kDirMode);
}

int dumpBufToFile(char* filename, char* dir, void* buf, int size) {
  if (filename == nullptr || size < 0 || (buf == nullptr && size > 0)) {
    FLK_LOGE("invalid arguments: filename(%p) buf(%p) size(%d).", static_cast<void*>(filename), buf,
             size);
    return -2;
  }
  FILE* file = fopen(filename, "w");
  if (file == nullptr) {
    // The caller retries the next time, once the folder exists.
    return createDir(dir) == 0 ? -1 : -2;
  }
  const size_t written = size > 0 ? fwrite(buf, 1, static_cast<size_t>(size), file) : 0;
  if (written < static_cast<size_t>(size)) {
    FLK_LOGE("fwrite error(%zu).", written);
  }
  closeLogged(file);
  return 0;
}

int64_t getMs() {
  struct timespec now {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

namespace {
// strerror_r comes in a GNU (char*) and an XSI (int) form; take either.
[[maybe_unused]] const char* pickErrorText(const char* text, const char* /*buf*/) {
  return text != nullptr ? text : "unknown error";
}
[[maybe_unused]] const char* pickErrorText(int rc, const char* buf) {
  return rc == 0 ? buf : "unknown error";
}
}  // namespace

const char* flickerErrorText(int err, char* buf, size_t size) {
  if (buf == nullptr || size == 0)
    return "unknown error";
  buf[0] = '\0';
  return pickErrorText(strerror_r(err, buf, size), buf);
}
