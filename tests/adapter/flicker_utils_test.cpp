// The dump counter file, folder and file helpers, and the millisecond clock.
#include "flicker_utils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "adapter_test_support.h"

namespace adapter_test {
namespace {

class UtilsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake_platform::reset();
    root_ = fake_platform::dataRoot();
  }
  std::string path(const std::string& name) const { return root_ + "/" + name; }
  std::string root_;
};

TEST_F(UtilsTest, GetFileCountAcceptsOneNonNegativeInteger) {
  struct Row {
    const char* what;
    const char* content;  // null: no file
    int rc;
    int count;  // the default is 77
  };
  const Row rows[] = {
      {"missing file keeps the default", nullptr, -1, 77},
      {"plain number", "42", 0, 42},
      {"surrounding white space", "  17\n", 0, 17},
      {"explicit plus sign", "+8", 0, 8},
      {"zero", "0", 0, 0},
      {"garbage", "abc", -1, 77},
      {"empty file", "", -1, 77},
      {"negative number", "-5", -1, 77},
      {"beyond int", "99999999999", -1, 77},
      {"only the first token counts", "12 34", 0, 12},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string file = path("count.txt");
    unlink(file.c_str());
    if (row.content != nullptr) {
      writeText(file, row.content);
    }
    int count = -1;
    EXPECT_EQ(getFileCount(file.c_str(), &count, 77), row.rc);
    EXPECT_EQ(count, row.count);
  }
  int count = -1;
  EXPECT_EQ(getFileCount(nullptr, &count, 3), -1);
  EXPECT_EQ(getFileCount(path("count.txt").c_str(), nullptr, 3), -1);
  EXPECT_TRUE(fake_platform::loggedError("fscanf error(1)."));   // "abc"
  EXPECT_TRUE(fake_platform::loggedError("fscanf error(-1)."));  // empty file
}

TEST_F(UtilsTest, SetFileCountWritesBareDecimalText) {
  const std::string file = path("count.txt");
  writeText(file, "123456789");
  EXPECT_EQ(setFileCount(file.c_str(), 8), 0);
  EXPECT_EQ(readText(file), "8");  // truncated, no newline
  EXPECT_EQ(setFileCount(file.c_str(), -3), 0);
  EXPECT_EQ(readText(file), "-3");
  EXPECT_EQ(setFileCount(path("missing/count.txt").c_str(), 1), -1);
  EXPECT_EQ(setFileCount(nullptr, 1), -1);
}

TEST_F(UtilsTest, CounterFollowsASymbolicLink) {
  struct Row {
    const char* what;
    std::string target;  // as stored in the link
  };
  const Row rows[] = {
      {"absolute target", path("real_abs.txt")},
      {"relative target, taken from the link's folder", "real_rel.txt"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string link = path("link.txt");
    const std::string real = row.target[0] == '/' ? row.target : path(row.target);
    unlink(link.c_str());
    ASSERT_EQ(symlink(row.target.c_str(), link.c_str()), 0);
    writeText(real, "41");
    int count = 0;
    EXPECT_EQ(getFileCount(link.c_str(), &count, 0), 0);
    EXPECT_EQ(count, 41);
    EXPECT_EQ(setFileCount(link.c_str(), 42), 0);
    EXPECT_EQ(readText(real), "42");
    struct stat info;
    ASSERT_EQ(lstat(link.c_str(), &info), 0);
    EXPECT_TRUE(S_ISLNK(info.st_mode));  // the link itself is left in place
  }
}

TEST_F(UtilsTest, CanonicalPathCopiesResolvesAndTruncates) {
  char out[16];
  memset(out, 'x', sizeof(out));
  _get_canonical_filepath("/a/b", out, sizeof(out));
  EXPECT_STREQ(out, "/a/b");  // not a link: a copy
  _get_canonical_filepath("/a/very/long/path/name", out, 8);
  EXPECT_STREQ(out, "/a/very");  // cut to the size, terminator included
  _get_canonical_filepath(nullptr, out, sizeof(out));
  EXPECT_STREQ(out, "");
  memset(out, 'x', sizeof(out));
  _get_canonical_filepath("/a", out, 0);
  EXPECT_EQ(out[0], 'x');                     // no room at all: nothing written
  _get_canonical_filepath("/a", nullptr, 4);  // no output: no crash

  char target[512];
  ASSERT_EQ(symlink("/some/target", path("l").c_str()), 0);
  _get_canonical_filepath(path("l").c_str(), target, sizeof(target));
  EXPECT_STREQ(target, "/some/target");
}

TEST_F(UtilsTest, CounterPathsThatDoNotFitAreRefused) {
  // The counter helpers resolve into 500 bytes; a longer path is an error,
  // not a silently different file.
  const std::string longPath = root_ + "/" + std::string(520, 'c');
  int count = 5;
  EXPECT_EQ(getFileCount(longPath.c_str(), &count, 9), -1);
  EXPECT_EQ(count, 9);
  EXPECT_EQ(setFileCount(longPath.c_str(), 1), -1);
  EXPECT_TRUE(fake_platform::loggedError("path too long"));
}

TEST_F(UtilsTest, CreateDirMakesOneLevelWithMode0770) {
  const mode_t oldMask = umask(0);
  const std::string dir = path("d");
  EXPECT_EQ(createDir(dir.c_str()), 0);
  struct stat info;
  ASSERT_EQ(stat(dir.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0770u);
  umask(oldMask);
  errno = 0;
  EXPECT_EQ(createDir(dir.c_str()), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(createDir(path("x/y").c_str()), -1);  // one level only
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(createDir(nullptr), -1);
}

TEST_F(UtilsTest, DumpBufToFileReturnCodes) {
  char data[] = "0123456789";
  struct Row {
    const char* what;
    std::string file;
    std::string dir;
    int rc;
  };
  const Row rows[] = {
      {"file opened", path("a.bin"), path("unused"), 0},
      {"folder missing, created for next time", path("new/a.bin"), path("new"), -1},
      {"retry after the folder was made", path("new/a.bin"), path("new"), 0},
      {"neither file nor folder", path("p/q/a.bin"), path("p/q"), -2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::string file = row.file;
    std::string dir = row.dir;
    EXPECT_EQ(dumpBufToFile(&file[0], &dir[0], data, 10), row.rc);
    if (row.rc == 0) {
      EXPECT_EQ(readText(row.file), "0123456789");
    }
    if (row.rc == -1) {
      EXPECT_FALSE(exists(row.file));  // not retried
    }
  }
  std::string file = path("b.bin");
  std::string dir = root_;
  EXPECT_EQ(dumpBufToFile(nullptr, &dir[0], data, 10), -2);
  EXPECT_EQ(dumpBufToFile(&file[0], &dir[0], data, -1), -2);
  EXPECT_EQ(dumpBufToFile(&file[0], &dir[0], nullptr, 4), -2);
  EXPECT_EQ(dumpBufToFile(&file[0], &dir[0], nullptr, 0), 0);
  EXPECT_EQ(readText(file), "");
}

TEST(FlickerUtilsClock, GetMsIsTheMonotonicClockInMilliseconds) {
  struct timespec before {};
  clock_gettime(CLOCK_MONOTONIC, &before);
  const int64_t ms = getMs();
  const int64_t again = getMs();
  const int64_t beforeMs = static_cast<int64_t>(before.tv_sec) * 1000 + before.tv_nsec / 1000000;
  EXPECT_GE(ms, beforeMs);
  EXPECT_LE(ms - beforeMs, 1000);  // same clock and unit, not e.g. microseconds
  EXPECT_GE(again, ms);
}

}  // namespace
}  // namespace adapter_test
