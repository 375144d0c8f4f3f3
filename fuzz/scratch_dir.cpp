#include "scratch_dir.h"

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

int removeEntry(const char* path, const struct stat* /*sb*/, int /*flag*/, struct FTW* /*ftw*/) {
  return remove(path);
}

}  // namespace

ScratchDir::ScratchDir() {
  // Memory-backed by default: rewriting a file per input on a disk file
  // system can force a write-back on every close and cut the run rate a
  // hundredfold.
  const char* tmp = getenv("TMPDIR");
  std::string base = tmp != nullptr && tmp[0] != '\0' ? tmp : "";
  if (base.empty())
    base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  std::string pattern = base + "/flicker-fuzz-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) {
    fprintf(stderr, "ScratchDir: mkdtemp(%s) failed (errno %d)\n", pattern.c_str(), errno);
    abort();
  }
  path_ = buffer.data();
}

ScratchDir::~ScratchDir() {
  nftw(path_.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::string ScratchDir::file(const std::string& relative) const {
  return path_ + "/" + relative;
}

void ScratchDir::makeDirs(const std::string& relative) const {
  std::string partial = path_;
  size_t start = 0;
  while (start <= relative.size()) {
    size_t slash = relative.find('/', start);
    if (slash == std::string::npos)
      slash = relative.size();
    if (slash > start) {
      partial += "/" + relative.substr(start, slash - start);
      if (mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) {
        fprintf(stderr, "ScratchDir: mkdir(%s) failed (errno %d)\n", partial.c_str(), errno);
        abort();
      }
    }
    start = slash + 1;
  }
}

void ScratchDir::writeFile(const std::string& absolutePath, const uint8_t* data, size_t size) {
  FILE* file = fopen(absolutePath.c_str(), "wb");
  if (file == nullptr) {
    fprintf(stderr, "ScratchDir: cannot write %s (errno %d)\n", absolutePath.c_str(), errno);
    abort();
  }
  const size_t written = size == 0 ? 0 : fwrite(data, 1, size, file);
  if (fclose(file) != 0 || written != size) {
    fprintf(stderr, "ScratchDir: short write of %s\n", absolutePath.c_str());
    abort();
  }
}
