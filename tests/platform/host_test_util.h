// Small helpers shared by the host platform tests: a temporary folder that
// removes itself and whole-file reads and writes.
#pragma once

#include <ftw.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <string>

namespace host_test {

class TempDir {
 public:
  TempDir() {
    const char* tmp = getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/flicker_host_test_XXXXXX";
    path_ = mkdtemp(&pattern[0]) != nullptr ? pattern : "";
    EXPECT_FALSE(path_.empty()) << "mkdtemp failed";
  }
  ~TempDir() {
    if (!path_.empty())
      nftw(path_.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  static int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    return remove(path);
  }
  std::string path_;
};

inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace host_test
