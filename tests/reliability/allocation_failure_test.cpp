// Every C allocation of a sensor's whole life (instance, Init, Config, Start,
// frames, Stop, Uninit) is made to fail in turn, one per run. The instance is
// created once per process, so each run forks a child, which also turns a
// crash or a hang into a failure instead of the end of the test binary. A run
// must not crash or hang, must report its failure with the documented
// message, and the sensor must detect again after the next Init.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "manager_rig.h"

namespace {

using namespace mgr_test;

// Runs `body` in a forked child and hands back the bytes it returned; false
// with the reason when the child crashed or failed. A child still running
// after `timeoutSeconds` is ended by SIGALRM. The child inherits locks
// without their owners, so no other thread may hold one the body needs; it
// ends with _exit, running no destructors.
bool runInChild(const std::function<std::string()>& body, unsigned timeoutSeconds,
                std::string* report, std::string* failure) {
  int fds[2];
  if (pipe(fds) != 0) {
    *failure = std::string("pipe: ") + strerror(errno);
    return false;
  }
  fflush(nullptr);  // nothing buffered is written twice
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(timeoutSeconds);
    const std::string bytes = body();
    _exit(write(fds[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) ? 0 : 3);
  }
  close(fds[1]);
  char buffer[4096];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof(buffer))) != 0 && (n > 0 || errno == EINTR);)
    report->append(buffer, static_cast<size_t>(std::max<ssize_t>(n, 0)));
  close(fds[0]);
  int status = 0;
  while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (pid > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0)
    return true;
  *failure = pid < 0 ? std::string("fork: ") + strerror(errno)
             : WIFSIGNALED(status)
                 ? std::string("child ended by ") + strsignal(WTERMSIG(status))
                 : "child exited with status " + std::to_string(WEXITSTATUS(status));
  return false;
}

// The documented messages of the failing sites.
const char* const kTableMessage = "Can not locate memory for parameters.";
const char* const kBufferMessages[] = {"falied to allocate buffer 1.",
                                       "falied to allocate buffer 2."};
const char* const kNullBufferMessage = "column_vector_data_1_ or column_vector_data_2_ is NULL.";

// Error lines of the unified logger (errors reach both sinks) containing `text`.
int errors(const char* text) {
  int n = 0;
  for (const fp::LogLine& line : fp::logs())
    n += line.sink == 1 && line.level == 1 && line.text.find(text) != std::string::npos;
  return n;
}

// One sensor's flow with the n-th allocation failing, then a second round
// with nothing failing. Runs in the child; returns the site that failed
// ("table", "buffer 1", "buffer 2", "none" or "unnamed"), then one line per
// problem found.
std::string runFlow(int failAt) {
  fp::reset();
  DetectRecorder recorder;
  fp::failNthAllocation(failAt);
  SensorRig rig(3);  // the first GetInstance: the constructor allocates the table
  const int initResult = rig.mgr().Init(0, 100);
  rig.mgr().Config(makeConfig());
  rig.mgr().SetParam(makeInput());
  rig.mgr().Start(flicker_start_info{});
  rig.frames(12);  // four detection cycles of the default three frames
  if (!fp::logged("falied to allocate buffer"))
    recorder.waitFor(1);
  std::vector<uint8_t> result;
  rig.mgr().GetResult(&result);
  rig.mgr().Stop();
  const int uninitResult = rig.mgr().Uninit();
  const int failed = fp::failedAllocations();
  const int table = errors(kTableMessage);
  const int buffer1 = errors(kBufferMessages[0]);
  const int buffer2 = errors(kBufferMessages[1]);
  const size_t firstRound = recorder.detections().size();
  std::string site = failed == 0 ? "none" : "unnamed";
  if (failed == 1 && table + buffer1 + buffer2 == 1)
    site = table == 1 ? "table" : buffer1 == 1 ? "buffer 1" : "buffer 2";
  std::string problems;
  auto check = [&problems](bool ok, const char* what) {
    problems += ok ? "" : "\n" + std::string(what);
  };
  // Init and Uninit report success whatever failed.
  check(initResult == 0 && uninitResult == 0, "Init or Uninit reported a failure");
  check(failed <= 1, "more than one allocation failed");
  // An incomplete table is not handed to NVRAM and detection runs untuned;
  // without buffers every frame's statistics are refused, so no detection.
  const bool noBuffers = site == "buffer 1" || site == "buffer 2";
  check(static_cast<int>(fp::nvramCalls().size()) == (site == "table" ? 0 : 1), "NVRAM calls");
  check((errors(kNullBufferMessage) > 0) == noBuffers, "per-frame missing-buffer errors");
  check((firstRound > 0) != noBuffers, "detections in the first round");

  fp::failNthAllocation(0);
  rig.bringUp();
  rig.frames(rig.frameNo() + 12);
  check(recorder.waitFor(firstRound + 1), "no detection after a clean Init");
  rig.shutDown();
  fp::setDataRoot(std::string());  // removes the child's temporary data root
  return site + problems;
}

TEST(AllocationFailureTest, EverySiteFailingInTurnIsReportedAndSurvived) {
  std::map<std::string, int> runsPerSite;
  int failAt = 1;
  for (; failAt <= 1000; ++failAt) {  // far more than the flow's allocation sites
    std::string report;
    std::string failure;
    ASSERT_TRUE(runInChild([failAt] { return runFlow(failAt); }, 120, &report, &failure))
        << "allocation " << failAt << " failing: " << failure;
    // Exactly one documented message names each failing site, so nothing
    // fails silently, and the run has no problem.
    const std::string site = report.substr(0, report.find('\n'));
    EXPECT_TRUE(site != "unnamed" && report == site) << "allocation " << failAt << ": " << report;
    if (site == "none")
      break;
    ++runsPerSite[site];
  }
  // The table is one array of 70 row pointers plus 70 rows; then two
  // buffers; then the failure-free run.
  EXPECT_EQ(runsPerSite,
            (std::map<std::string, int>{{"buffer 1", 1}, {"buffer 2", 1}, {"table", 71}}));
  EXPECT_EQ(failAt, 74);
}

}  // namespace
