// ScratchDir: one private temporary folder per fuzz process, removed at exit,
// where the targets write each input as the file the code under test reads.
// Files are rewritten in place on every iteration, so the folder never grows.
// Not thread-safe; fuzz targets create and use it on libFuzzer's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class ScratchDir {
 public:
  // Creates flicker-fuzz-XXXXXX under $TMPDIR, else /dev/shm (memory, fast
  // rewrites), else /tmp; aborts when it cannot,
  // because no fuzz run means anything without it.
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }
  // `path() + "/" + relative`.
  std::string file(const std::string& relative) const;
  // Creates `relative` and its missing parents (like mkdir -p).
  void makeDirs(const std::string& relative) const;
  // Replaces the file `absolutePath` with exactly `size` bytes; aborts on a
  // short write (the target would otherwise test the wrong input).
  static void writeFile(const std::string& absolutePath, const uint8_t* data, size_t size);

 private:
  std::string path_;
};
