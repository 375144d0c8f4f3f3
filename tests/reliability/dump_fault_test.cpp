// Faults of the dump tree under a running sensor: the data folder missing,
// read-only or full, the next folder's name taken by a file, and a counter
// file holding garbage or numbers at or past the int range. Each case first
// dumps normally (at least two detections), then runs a second round under
// the fault. Detection must go on, the fault must be logged with the
// documented message, and the folders written before must stay as they were,
// except where a counter that cannot be read sends the dump back to "000" by
// design.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "file_access_limits.h"
#include "manager_rig.h"

namespace {

using namespace mgr_test;
using reliability::FileAccessLimits;
namespace fp = fake_platform;

constexpr int kSensor = 7;
constexpr const char* kDumpRoot = "/data/vendor/flicker/flko/";

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void writeFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

bool exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

std::string folderName(int counter) {
  char name[16];
  snprintf(name, sizeof(name), "%03d", counter);
  return name;
}

// The last error and debug lines, for a failure message.
std::string lastMessages() {
  const std::vector<std::string> lines = fp::messages();
  std::string out;
  for (size_t i = lines.size() > 40 ? lines.size() - 40 : 0; i < lines.size(); ++i)
    out += lines[i] + "\n";
  return out;
}

// The dump tree of the fake's data root, as the host sees it.
struct DumpTree {
  std::string data() const { return fp::dataRoot() + "/data"; }
  std::string root() const { return fp::hostPath(kDumpRoot); }
  std::string counter() const { return root() + "flicker_file_cnt.txt"; }
  std::string folder(int counter) const { return root() + folderName(counter); }
  std::string flkRaw(int counter) const { return folder(counter) + "/flk.raw"; }
};

// How the counter file reads after the faulty round.
enum class CounterAfter { kUnchanged, kAdvancedByRound, kAny };

// One fault. `next` below is the folder number the second round starts at.
struct Fault {
  const char* name;
  // Prepares the fault on the test thread; false (with the reason) to skip.
  bool (*apply)(const DumpTree& tree, int next, FileAccessLimits& limits, std::string* why);
  // Takes the fault away after the round; returns a problem found, or "".
  std::string (*undo)(const DumpTree& tree, int next);
  const char* message;  // logged at error level; "{next}" is the folder number
  bool restartsAtZero;  // a counter that cannot be read restarts at "000"
  CounterAfter counterAfter;
};

std::string noUndo(const DumpTree&, int) {
  return "";
}

const Fault kFaults[] = {
    // The data folder itself is gone: nothing is created in its place.
    {"DataFolderMissing",
     [](const DumpTree& tree, int, FileAccessLimits&, std::string*) {
       return rename(tree.data().c_str(), (tree.data() + ".away").c_str()) == 0;
     },
     [](const DumpTree& tree, int) -> std::string {
       const bool recreated = exists(tree.data());
       if (recreated || rename((tree.data() + ".away").c_str(), tree.data().c_str()) != 0)
         return "the missing data folder was recreated";
       return "";
     },
     "failed to createDir(/data/vendor/flicker/flko/): No such file or directory.", false,
     CounterAfter::kUnchanged},
    // Dump folder and counter read-only: the counter cannot advance and the
    // next folder cannot be made. Root bypasses modes, so the test thread
    // (and the worker it starts) gives up that override for the round.
    {"DumpFolderReadOnly",
     [](const DumpTree& tree, int, FileAccessLimits& limits, std::string* why) {
       if (chmod(tree.counter().c_str(), 0444) != 0 || chmod(tree.root().c_str(), 0555) != 0) {
         *why = strerror(errno);
         return false;
       }
       return limits.dropFileOverride(why);
     },
     [](const DumpTree& tree, int) -> std::string {
       chmod(tree.root().c_str(), 0770);
       chmod(tree.counter().c_str(), 0644);
       return "";
     },
     "failed to createDir(/data/vendor/flicker/flko/{next}): Permission denied.", false,
     CounterAfter::kUnchanged},
    // A file where the next folder should be: that dump fails, later ones
    // go to the following numbers.
    {"NextFolderIsAFile",
     [](const DumpTree& tree, int next, FileAccessLimits&, std::string*) {
       writeFile(tree.folder(next), "not a folder");
       return true;
     },
     noUndo, "failed to open file(/data/vendor/flicker/flko/{next}/flk.raw).", false,
     CounterAfter::kAdvancedByRound},
    // Full after a few bytes: the counter still fits, the dump does not.
    {"DiskFullForDumps",
     [](const DumpTree&, int, FileAccessLimits& limits, std::string* why) {
       return limits.limitFileSize(16, why);
     },
     noUndo, "failed to write file(/data/vendor/flicker/flko/{next}/flk.raw).", false,
     CounterAfter::kAdvancedByRound},
    // Completely full: rewriting the counter truncates it and its digits
    // cannot be written back, so the next read finds it empty and the
    // dump restarts at "000", whose flk.raw is truncated in turn.
    {"DiskFull",
     [](const DumpTree&, int, FileAccessLimits& limits, std::string* why) {
       return limits.limitFileSize(0, why);
     },
     noUndo, "fclose error(-1).", true, CounterAfter::kAny},
    // Garbage in the counter: logged, and the count restarts at 0.
    {"CounterGarbage",
     [](const DumpTree& tree, int, FileAccessLimits&, std::string*) {
       writeFile(tree.counter(), "abc");
       return true;
     },
     noUndo, "fscanf error(1).", true, CounterAfter::kAny},
    // The last number an int holds cannot be advanced: no dump at all.
    {"CounterAtIntMax",
     [](const DumpTree& tree, int, FileAccessLimits&, std::string*) {
       writeFile(tree.counter(), "2147483647");
       return true;
     },
     noUndo, "dump counter(2147483647) exhausted.", false, CounterAfter::kAny},
    // A number past the int range is not a count: the default 0 is used.
    {"CounterPastIntRange",
     [](const DumpTree& tree, int, FileAccessLimits&, std::string*) {
       writeFile(tree.counter(), "99999999999");
       return true;
     },
     noUndo, nullptr, true, CounterAfter::kAny},
};

class DumpFaultTest : public ::testing::TestWithParam<Fault> {
 protected:
  void SetUp() override {
    fp::reset();
    fp::setProperty("vendor.debug.flk_dump", 1);
    ASSERT_EQ(system(("mkdir -p " + tree_.root()).c_str()), 0);
  }

  // Brings the sensor up, sends frames until `count` detections ran, and
  // stops it (joining the worker, so every dump of the round is finished).
  // Returns the detections of the round.
  int detectionRound(int count) {
    DetectRecorder recorder;
    rig_.bringUp();
    // Frames keep coming until the worker has run `count` detections; a pair
    // is armed only while no analysis is in progress, so a slow worker (file
    // writes, sanitizers, emulation) simply sees more frames go by.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    while (recorder.detections().size() < static_cast<size_t>(count) &&
           std::chrono::steady_clock::now() < deadline) {
      rig_.frame();
    }
    EXPECT_TRUE(recorder.waitFor(count)) << "detection stopped; last messages:\n" << lastMessages();
    rig_.shutDown();
    return static_cast<int>(recorder.detections().size());
  }

  DumpTree tree_;
  SensorRig rig_{kSensor};
};

TEST_P(DumpFaultTest, DetectionGoesOnAndEarlierDumpsSurvive) {
  const Fault& fault = GetParam();
  // More dumps first than the faulty round makes (at most one beyond the two
  // it waits for), so that a counter restarting at 0 leaves some untouched.
  const int first = detectionRound(5);
  ASSERT_GE(first, 5);
  ASSERT_EQ(readFile(tree_.counter()), std::to_string(first));
  std::map<int, std::string> before;
  for (int n = 0; n < first; ++n) {
    before[n] = readFile(tree_.flkRaw(n));
    ASSERT_FALSE(before[n].empty()) << folderName(n);
  }

  fp::clearLogs();
  int second = 0;
  {
    FileAccessLimits limits;
    std::string why;
    if (!fault.apply(tree_, first, limits, &why))
      GTEST_SKIP() << "cannot set up " << fault.name << ": " << why;
    second = detectionRound(2);
  }
  EXPECT_EQ(fault.undo(tree_, first), "");
  EXPECT_GE(second, 2) << "detection must not depend on the dump";

  if (fault.message != nullptr) {
    std::string message = fault.message;
    const size_t at = message.find("{next}");
    if (at != std::string::npos)
      message.replace(at, 6, folderName(first));
    EXPECT_TRUE(fp::loggedError(message)) << message;
  }
  for (const auto& [n, bytes] : before) {
    // A restarted count rewrites the first folders, one per dump.
    if (fault.restartsAtZero && n < second)
      continue;
    const std::string now = readFile(tree_.flkRaw(n));
    EXPECT_TRUE(now == bytes) << "dump " << folderName(n) << " changed: " << bytes.size()
                              << " bytes before, " << now.size() << " after";
  }
  if (fault.restartsAtZero) {
    // The restart is real: the first folder was written again.
    EXPECT_FALSE(readFile(tree_.flkRaw(0)) == before[0]) << "dump 000 not rewritten";
  }
  switch (fault.counterAfter) {
    case CounterAfter::kUnchanged:
      EXPECT_EQ(readFile(tree_.counter()), std::to_string(first));
      break;
    case CounterAfter::kAdvancedByRound:
      EXPECT_EQ(readFile(tree_.counter()), std::to_string(first + second));
      break;
    case CounterAfter::kAny:
      break;
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, DumpFaultTest, ::testing::ValuesIn(kFaults),
                         [](const ::testing::TestParamInfo<Fault>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
