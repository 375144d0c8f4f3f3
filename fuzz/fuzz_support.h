// Helpers shared by the fuzz targets: the FUZZ_CHECK assertion, FuzzInput (a
// cursor that splits an input into little-endian fields, the way the seeds
// are written), the private scratch folder where inputs become the files the
// code under test reads, and the banded statistics profile of a lamp.
// Everything here runs on libFuzzer's thread and is not thread-safe.
#pragma once

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

// A broken property is a finding: print what failed and abort, which libFuzzer
// reports as a crash with the input saved. Active in every build type.
#define FUZZ_CHECK(cond, format, ...)                                                     \
  do {                                                                                    \
    if (!(cond)) {                                                                        \
      fprintf(stderr, "%s:%d: check failed: %s: " format "\n", __FILE__, __LINE__, #cond, \
              ##__VA_ARGS__);                                                             \
      abort();                                                                            \
    }                                                                                     \
  } while (0)

// Fields past the end of the input read as zero.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  template <typename T>
  T take() {
    T value{};
    copy(&value, sizeof(T));
    return value;
  }
  // The next byte reduced to [0, count).
  unsigned pick(unsigned count) { return take<uint8_t>() % count; }
  // Copies up to `n` bytes to `out` and returns how many there were.
  size_t copy(void* out, size_t n) {
    n = std::min(n, size_ - pos_);
    if (n > 0)
      memcpy(out, data_ + pos_, n);
    pos_ += n;
    return n;
  }
  bool empty() const { return pos_ >= size_; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

// flicker-fuzz-XXXXXX under $TMPDIR, else /dev/shm, else /tmp; removed when
// the process exits normally. Memory by default: rewriting a file per input
// on a disk file system can force a write-back on every close and cut the run
// rate a hundredfold.
inline const std::string& scratchDir() {
  static const struct Dir {
    std::string path;
    Dir() {
      const char* tmp = getenv("TMPDIR");
      path = tmp != nullptr && tmp[0] != '\0' ? tmp
             : access("/dev/shm", W_OK) == 0  ? "/dev/shm"
                                              : "/tmp";
      path += "/flicker-fuzz-XXXXXX";
      FUZZ_CHECK(mkdtemp(&path[0]) != nullptr, "mkdtemp(%s), errno %d", path.c_str(), errno);
    }
    ~Dir() {
      nftw(
          path.c_str(), [](const char* p, const struct stat*, int, FTW*) { return remove(p); }, 16,
          FTW_DEPTH | FTW_PHYS);
    }
  } dir;
  return dir.path;
}

// The scratch path of `relative`, with its missing parent folders created.
inline std::string scratchFile(const std::string& relative) {
  for (size_t slash = 0; (slash = relative.find('/', slash + 1)) != std::string::npos;)
    mkdir((scratchDir() + "/" + relative.substr(0, slash)).c_str(), 0700);  // may exist
  return scratchDir() + "/" + relative;
}

// Replaces `path` with exactly the input; aborts when it cannot, since the
// target would otherwise test another input.
inline void writeFile(const std::string& path, const uint8_t* data, size_t size) {
  FILE* file = fopen(path.c_str(), "wb");
  FUZZ_CHECK(file != nullptr, "cannot write %s, errno %d", path.c_str(), errno);
  const size_t written = size == 0 ? 0 : fwrite(data, 1, size, file);
  FUZZ_CHECK(fclose(file) == 0 && written == size, "short write of %s", path.c_str());
}

// Entry `i` of a generic statistics block under a lamp: a sine over the
// statistics lines (six entries per line), shifted by `shift` lines.
inline int64_t bandedEntry(int i, double base, double amplitude, double period, double shift) {
  constexpr double kTwoPi = 6.283185307179586;
  return static_cast<int64_t>(base + amplitude * std::sin(kTwoPi * (i / 6 + shift) / period));
}
