// A camera service may end at any moment, also without Stop or Uninit and
// while a manager's worker is in the middle of a detection. Runs the exit
// child (the real manager over the host platform and the open algorithm)
// many times in a row, its exit falling at different points of the last
// detection; every run must end with status 0.
//
// Runs: FLICKER_EXIT_RUNS (default 60).
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <iterator>
#include <string>

extern char** environ;

namespace {

constexpr int kDefaultRuns = 60;
// The last frame completes a pair at some of these counts and leaves a first
// frame pending at others; the delays sweep the exit across a detection
// (tens of microseconds optimised, a few hundred under the sanitizers).
constexpr int kFrameCounts[] = {5, 6, 7, 8, 9, 10, 12};
constexpr int kDelaysUs[] = {0, 15, 30, 60, 100, 150, 220, 300, 450, 700, 1000};

int runs() {
  const char* text = getenv("FLICKER_EXIT_RUNS");
  return text != nullptr && atoi(text) > 0 ? atoi(text) : kDefaultRuns;
}

struct ChildEnd {
  int status = -1;  // as waitpid reports it; -1: not started
  bool hung = false;
  std::string output;
};

// Runs the child with its output in a temporary file. A child that has not
// ended after kChildTimeout is killed and reported as hung: an exit that
// deadlocks is as much a fault as one that crashes.
ChildEnd runChild(int frames, int delayUs) {
  constexpr auto kChildTimeout = std::chrono::seconds(30);
  ChildEnd end;
  char outputPath[] = "/tmp/flicker_exit_child.XXXXXX";
  const int outputFd = mkstemp(outputPath);
  if (outputFd < 0)
    return end;
  const std::string command = std::string("exec ") + FLICKER_CHILD_LAUNCHER + " '" +
                              FLICKER_EXIT_CHILD + "' " + std::to_string(frames) + " " +
                              std::to_string(delayUs) + " >'" + outputPath + "' 2>&1";
  const char* argv[] = {"sh", "-c", command.c_str(), nullptr};
  pid_t pid = 0;
  if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) == 0) {
    std::future<int> ended = std::async(std::launch::async, [pid] {
      int status = -1;
      waitpid(pid, &status, 0);
      return status;
    });
    if (ended.wait_for(kChildTimeout) == std::future_status::timeout) {
      end.hung = true;
      kill(pid, SIGKILL);
    }
    end.status = ended.get();
  }
  std::ifstream output(outputPath);
  end.output.assign(std::istreambuf_iterator<char>(output), std::istreambuf_iterator<char>());
  close(outputFd);
  unlink(outputPath);
  return end;
}

std::string describe(const ChildEnd& end) {
  if (end.hung)
    return "hung at exit (killed)";
  if (end.status == -1)
    return "could not be started";
  if (WIFSIGNALED(end.status))
    return "killed by signal " + std::to_string(WTERMSIG(end.status));
  return "exit status " + std::to_string(WEXITSTATUS(end.status));
}

TEST(ProcessExitTest, ExitDuringDetectionsNeverCrashes) {
  const int total = runs();
  int failed = 0;
  for (int run = 0; run < total; ++run) {
    const int frames = kFrameCounts[run % std::size(kFrameCounts)];
    const int delayUs = kDelaysUs[run % std::size(kDelaysUs)];
    const ChildEnd end = runChild(frames, delayUs);
    if (end.status == 0)
      continue;
    // The child's own messages are only the manager's error lines; the tail
    // shows what the crash printed.
    const size_t keep = 1500;
    ADD_FAILURE() << "run " << run << " (" << frames << " frames, exit after " << delayUs
                  << " us): " << describe(end) << "\n"
                  << end.output.substr(end.output.size() > keep ? end.output.size() - keep : 0);
    ++failed;
  }
  EXPECT_EQ(failed, 0) << "of " << total << " runs";
}

}  // namespace
