#include "flicker_dump_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

namespace flicker_dump {
namespace {

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

bool fail(std::string* error, const std::string& path, const std::string& why) {
  if (error != nullptr) {
    *error = path + ": " + why;
  }
  return false;
}

// Size of the open file, or -1.
long long fileSize(FILE* file) {
  struct stat info;
  if (fstat(fileno(file), &info) != 0) {
    return -1;
  }
  return static_cast<long long>(info.st_size);
}

template <typename T>
bool readValue(FILE* file, T* value) {
  return fread(value, sizeof(T), 1, file) == 1;
}

bool readColumn(FILE* file, int32_t count, std::vector<int64_t>* column) {
  column->assign(static_cast<size_t>(count), 0);
  return count == 0 ||
         fread(column->data(), sizeof(int64_t), column->size(), file) == column->size();
}

}  // namespace

bool readFlkRaw(const std::string& path, FlkRawDump* out, std::string* error) {
  if (out == nullptr) {
    return fail(error, path, "no output record");
  }
  File file(fopen(path.c_str(), "rb"));
  if (!file) {
    return fail(error, path, "cannot open");
  }
  const long long size = fileSize(file.get());
  if (size < static_cast<long long>(flkRawSize(0))) {
    return fail(error, path, "size " + std::to_string(size) + " is below the empty layout");
  }
  FlkRawDump dump;
  if (!readValue(file.get(), &dump.count)) {
    return fail(error, path, "cannot read the count");
  }
  if (dump.count < 0 || dump.count > kMaxEntries) {
    return fail(error, path, "count " + std::to_string(dump.count) + " outside [0, 36000]");
  }
  if (size != static_cast<long long>(flkRawSize(dump.count))) {
    return fail(error, path,
                "size " + std::to_string(size) + " does not match count " +
                    std::to_string(dump.count) + " (expected " +
                    std::to_string(flkRawSize(dump.count)) + ")");
  }
  FILE* f = file.get();
  FlkRawTrailer trailer;
  const bool ok = readColumn(f, dump.count, &dump.slot1) &&
                  readColumn(f, dump.count, &dump.slot0) && readValue(f, &trailer);
  if (!ok) {
    return fail(error, path, "short read");
  }
  dump.winValue1 = trailer.winValue1;
  dump.winValue2 = trailer.winValue2;
  dump.freq = trailer.freq;
  dump.pixelClk = trailer.pixelClk;
  dump.lineLength = trailer.lineLength;
  dump.exposure = trailer.exposure;
  std::copy(trailer.aux, trailer.aux + kAuxWords, dump.aux);
  *out = std::move(dump);
  return true;
}

bool readFlkPureRaw(const std::string& path, int32_t expectedCount, FlkPureDump* out,
                    std::string* error) {
  if (out == nullptr) {
    return fail(error, path, "no output record");
  }
  File file(fopen(path.c_str(), "rb"));
  if (!file) {
    return fail(error, path, "cannot open");
  }
  const long long size = fileSize(file.get());
  if (size < 0 || size % 16 != 0) {
    return fail(error, path, "size " + std::to_string(size) + " is not two int64 columns");
  }
  const long long count = size / 16;
  if (count > kMaxEntries || (expectedCount >= 0 && count != expectedCount)) {
    return fail(error, path,
                "size " + std::to_string(size) + " gives " + std::to_string(count) +
                    " entries per column (expected " +
                    (expectedCount >= 0 ? std::to_string(expectedCount) : "at most 36000") + ")");
  }
  FlkPureDump dump;
  const auto n = static_cast<int32_t>(count);
  if (!readColumn(file.get(), n, &dump.slot1) || !readColumn(file.get(), n, &dump.slot0)) {
    return fail(error, path, "short read");
  }
  *out = std::move(dump);
  return true;
}

}  // namespace flicker_dump
