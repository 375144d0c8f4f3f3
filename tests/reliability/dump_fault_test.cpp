// Faults of the dump tree under a running sensor: the data folder missing,
// read-only or full, the next folder's name taken by a file, and a counter
// file holding numbers at or past the int range (garbage in it is
// flicker_dump_writer_test.cpp's). Each case first dumps normally (at least
// five detections), then runs a second round under the fault. Detection
// must go on, the fault must be logged with the documented message, and the
// folders written before must stay as they were, except where a counter that
// cannot be read sends the dump back to "000" by design.
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "case_names.h"
#include "manager_rig.h"
#include "temp_files.h"

namespace {

using namespace mgr_test;

using test_files::readFile;
using test_files::writeFile;

// Makes the file system refuse the library's writes without a mount; undone
// on destruction. Construct and destroy on one thread.
class FileAccessLimits {
 public:
  ~FileAccessLimits() {
    if (header_.version != 0)
      syscall(SYS_capset, &header_, saved_);
    if (sizeLimited_) {
      setrlimit(RLIMIT_FSIZE, &savedLimit_);
      signal(SIGXFSZ, SIG_DFL);
    }
  }
  // Drops the calling thread's capabilities that bypass file modes (as root
  // a read-only mode is otherwise ignored); threads it starts afterwards
  // inherit the drop.
  void dropFileOverride() {
    header_ = {_LINUX_CAPABILITY_VERSION_3, 0};
    syscall(SYS_capget, &header_, saved_);
    __user_cap_data_struct dropped[2] = {saved_[0], saved_[1]};
    dropped[0].effective &= ~(CAP_TO_MASK(CAP_DAC_OVERRIDE) | CAP_TO_MASK(CAP_DAC_READ_SEARCH) |
                              CAP_TO_MASK(CAP_FOWNER));
    syscall(SYS_capset, &header_, dropped);
  }
  // Writes past `bytes` fail with EFBIG (SIGXFSZ ignored), as on a full disk.
  void limitFileSize(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &savedLimit_);
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = savedLimit_;
    limit.rlim_cur = bytes;
    sizeLimited_ = setrlimit(RLIMIT_FSIZE, &limit) == 0;
  }

 private:
  __user_cap_header_struct header_ = {};
  __user_cap_data_struct saved_[2] = {};
  bool sizeLimited_ = false;
  struct rlimit savedLimit_ = {};
};

// The dump tree of the fake's data root, as the host sees it.
struct DumpTree {
  std::string data() const { return fp::dataRoot() + "/data"; }
  std::string root() const { return fp::hostPath("/data/vendor/flicker/flko/"); }
  std::string counter() const { return root() + "flicker_file_cnt.txt"; }
  std::string folder(int n) const { return root() + name(n); }
  std::string flkRaw(int n) const { return folder(n) + "/flk.raw"; }
  static std::string name(int n) {
    return std::string(n < 10 ? 2 : n < 100 ? 1 : 0, '0') + std::to_string(n);
  }
};

enum class Make { kNothingElse, kDataFolderAway, kReadOnly, kFileAsNextFolder };

struct Fault {
  const char* name;
  Make make;
  const char* counterText;  // written to the counter file first, if set
  int fileSizeLimit;        // bytes, -1: none
  const char* message;      // logged at error level; "{next}" is the next folder's number
  bool restartsAtZero;      // a counter that cannot be read restarts at "000"
  int counterAdvance;  // of the counter file over the round: 0, 1 = by the round's dumps, -1 any
};

CASE_PRINTS_ITS_NAME(Fault)

const Fault kFaults[] = {
    // The data folder itself is gone: nothing is created in its place.
    {"DataFolderMissing", Make::kDataFolderAway, nullptr, -1,
     "failed to createDir(/data/vendor/flicker/flko/): No such file or directory.", false, 0},
    // Dump folder and counter read-only: the counter cannot advance and the
    // next folder cannot be made. Root bypasses modes, so the test thread
    // (and the worker it starts) gives up that override for the round.
    {"DumpFolderReadOnly", Make::kReadOnly, nullptr, -1,
     "failed to createDir(/data/vendor/flicker/flko/{next}): Permission denied.", false, 0},
    // A file where the next folder should be: that dump fails, later ones go
    // to the following numbers.
    {"NextFolderIsAFile", Make::kFileAsNextFolder, nullptr, -1,
     "failed to open file(/data/vendor/flicker/flko/{next}/flk.raw).", false, 1},
    // Full after a few bytes: the counter still fits, the dump does not.
    {"DiskFullForDumps", Make::kNothingElse, nullptr, 16,
     "failed to write file(/data/vendor/flicker/flko/{next}/flk.raw).", false, 1},
    // Completely full: rewriting the counter truncates it and its digits
    // cannot be written back, so the next read finds it empty and the dump
    // restarts at "000", whose flk.raw is truncated in turn.
    {"DiskFull", Make::kNothingElse, nullptr, 0, "fclose error(-1).", true, -1},
    // The last number an int holds cannot be advanced: no dump at all.
    {"CounterAtIntMax", Make::kNothingElse, "2147483647", -1, "dump counter(2147483647) exhausted.",
     false, -1},
    // A number past the int range is not a count: the default 0 is used.
    {"CounterPastIntRange", Make::kNothingElse, "99999999999", -1, nullptr, true, -1},
};

class DumpFaultTest : public ::testing::TestWithParam<Fault> {
 protected:
  void SetUp() override {
    fp::reset();
    fp::setProperty("vendor.debug.flk_dump", 1);
    ASSERT_EQ(system(("mkdir -p " + tree_.root()).c_str()), 0);
  }

  // Brings the sensor up, sends frames until `count` detections ran (a pair
  // is armed only while no analysis runs, so a slow worker just sees more
  // frames go by), and stops it, joining the worker so every dump of the
  // round is finished. Returns the detections of the round.
  int detectionRound(int count) {
    DetectRecorder recorder;
    rig_.bringUp();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    while (recorder.detections().size() < static_cast<size_t>(count) &&
           std::chrono::steady_clock::now() < deadline)
      rig_.frame();
    EXPECT_TRUE(recorder.waitFor(count)) << "detection stopped";
    rig_.shutDown();
    return static_cast<int>(recorder.detections().size());
  }

  DumpTree tree_;
  SensorRig rig_{7};
};

TEST_P(DumpFaultTest, DetectionGoesOnAndEarlierDumpsSurvive) {
  const Fault& fault = GetParam();
  // More dumps first than the faulty round makes (at most one beyond the two
  // it waits for), so that a counter restarting at 0 leaves some untouched.
  const int first = detectionRound(5);
  ASSERT_GE(first, 5);
  ASSERT_EQ(readFile(tree_.counter()), std::to_string(first));
  std::vector<std::string> before;
  before.reserve(static_cast<size_t>(first));
  for (int n = 0; n < first; ++n) before.push_back(readFile(tree_.flkRaw(n)));
  ASSERT_EQ(std::count(before.begin(), before.end(), ""), 0) << "the first round left empty dumps";
  // A dump holds the count, both slots of the block in force and the trailer.
  ASSERT_EQ(before[0].size(), 4 + 16 * IFlickerMgr::StatBlockEntries(1200, 300) + 60);

  fp::clearLogs();
  int second = 0;
  {
    FileAccessLimits limits;
    if (fault.counterText != nullptr)
      writeFile(tree_.counter(), fault.counterText);
    if (fault.fileSizeLimit >= 0)
      limits.limitFileSize(fault.fileSizeLimit);
    if (fault.make == Make::kFileAsNextFolder)
      writeFile(tree_.folder(first), "not a folder");
    ASSERT_TRUE(fault.make != Make::kDataFolderAway ||
                rename(tree_.data().c_str(), (tree_.data() + ".away").c_str()) == 0);
    if (fault.make == Make::kReadOnly) {
      chmod(tree_.counter().c_str(), 0444);
      chmod(tree_.root().c_str(), 0555);
      limits.dropFileOverride();
      // Where the modes cannot be made to hold, a probe folder can still be made.
      if (mkdir((tree_.root() + "probe").c_str(), 0700) == 0)
        GTEST_SKIP() << "file modes are bypassed in this environment";
    }
    second = detectionRound(2);
  }
  if (fault.make == Make::kDataFolderAway) {
    EXPECT_FALSE(access(tree_.data().c_str(), F_OK) == 0) << "the missing folder was recreated";
    ASSERT_EQ(rename((tree_.data() + ".away").c_str(), tree_.data().c_str()), 0);
  }
  chmod(tree_.root().c_str(), 0770);  // so that the next reset can remove the tree
  EXPECT_GE(second, 2) << "detection must not depend on the dump";

  std::string message = fault.message != nullptr ? fault.message : "";
  if (message.find("{next}") != std::string::npos)
    message.replace(message.find("{next}"), 6, DumpTree::name(first));
  EXPECT_TRUE(message.empty() || fp::loggedError(message)) << message;
  // A restarted count rewrites the first folders, one per dump.
  for (int n = fault.restartsAtZero ? second : 0; n < first; ++n)
    EXPECT_TRUE(readFile(tree_.flkRaw(n)) == before[n])
        << "dump " << DumpTree::name(n) << " changed";
  // A restart is real: the first folder was written again.
  EXPECT_EQ(readFile(tree_.flkRaw(0)) != before[0], fault.restartsAtZero);
  if (fault.counterAdvance >= 0) {
    EXPECT_EQ(readFile(tree_.counter()), std::to_string(first + fault.counterAdvance * second));
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, DumpFaultTest, ::testing::ValuesIn(kFaults),
                         case_names::CaseName());

}  // namespace
