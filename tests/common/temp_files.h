// Temporary folders that remove themselves, and whole-file reads and writes,
// for the tests that work on real files (host platform, tools).
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace test_files {

// A fresh folder under the system's temporary folder, removed with its
// contents on destruction; path() is empty when none could be made.
class TempDir {
 public:
  TempDir() {
    if (mkdtemp(&path_[0]) == nullptr)
      path_.clear();
  }
  ~TempDir() {
    if (!path_.empty())
      std::filesystem::remove_all(path_);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_ = std::filesystem::temp_directory_path().string() + "/flicker-test-XXXXXX";
};

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string readFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace test_files
