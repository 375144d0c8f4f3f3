// Every C allocation of a sensor's whole life (instance, Init, Config, Start,
// frames, Stop, Uninit) is made to fail in turn, one per run, each run in its
// own child process because the instance is created only once per process.
// A run must not crash or hang, must report its failure with the documented
// message, and the sensor must detect again after the next Init.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "child_process.h"
#include "manager_rig.h"

namespace {

using namespace mgr_test;
namespace fp = fake_platform;

constexpr int kSensor = 3;
constexpr int kFramesPerRound = 12;  // four detection cycles of the default three frames
constexpr int kMaxRuns = 1000;       // far more allocation sites than the flow has
constexpr int kChildTimeoutMs = 120000;

constexpr const char* kTableMessage = "Can not locate memory for parameters.";
constexpr const char* kBuffer1Message = "falied to allocate buffer 1.";
constexpr const char* kBuffer2Message = "falied to allocate buffer 2.";
constexpr const char* kNullBufferMessage =
    "column_vector_data_1_ or column_vector_data_2_ is NULL.";

// What one run saw, reported by the child.
struct RunReport {
  int failedAllocations;  // during the first round
  int tableMessages;
  int buffer1Messages;
  int buffer2Messages;
  int nullBufferMessages;
  int nvramCalls;
  int firstRoundDetections;
  int secondRoundDetections;
  int initResult;
  int uninitResult;
};

int errorCount(const char* text) {
  int n = 0;
  for (const fp::LogLine& line : fp::logs()) {
    // Errors reach both sinks; count the unified logger's copy only.
    if (line.sink == 1 && line.level == 1 && line.text.find(text) != std::string::npos)
      ++n;
  }
  return n;
}

// One sensor's flow with the n-th allocation failing, then a second round
// with nothing failing. Runs in the child.
RunReport runFlow(int failAt) {
  fp::reset();
  RunReport report{};
  DetectRecorder recorder;
  fp::failNthAllocation(failAt);
  SensorRig rig(kSensor);  // the first GetInstance: the constructor allocates the table
  report.initResult = rig.mgr().Init(0, 100);
  rig.mgr().Config(makeConfig());
  rig.mgr().SetParam(makeInput());
  rig.mgr().Start(flicker_start_info{});
  const bool buffersHeld = errorCount("falied to allocate buffer") == 0;
  rig.frames(kFramesPerRound);
  if (buffersHeld)
    recorder.waitFor(1);
  std::vector<uint8_t> result;
  rig.mgr().GetResult(&result);
  rig.mgr().Stop();
  report.uninitResult = rig.mgr().Uninit();
  report.failedAllocations = fp::failedAllocations();
  report.firstRoundDetections = static_cast<int>(recorder.detections().size());
  report.tableMessages = errorCount(kTableMessage);
  report.buffer1Messages = errorCount(kBuffer1Message);
  report.buffer2Messages = errorCount(kBuffer2Message);
  report.nullBufferMessages = errorCount(kNullBufferMessage);
  report.nvramCalls = static_cast<int>(fp::nvramCalls().size());

  fp::failNthAllocation(0);
  rig.bringUp();
  rig.frames(rig.frameNo() + kFramesPerRound);
  recorder.waitFor(report.firstRoundDetections + 1);
  rig.shutDown();
  report.secondRoundDetections =
      static_cast<int>(recorder.detections().size()) - report.firstRoundDetections;
  fp::setDataRoot(std::string());  // removes the child's temporary data root
  return report;
}

TEST(AllocationFailureTest, EverySiteFailingInTurnIsReportedAndSurvived) {
  int tableRuns = 0;
  int buffer1Runs = 0;
  int buffer2Runs = 0;
  int failAt = 1;
  RunReport clean{};
  for (; failAt <= kMaxRuns; ++failAt) {
    SCOPED_TRACE("allocation " + std::to_string(failAt) + " failing");
    RunReport r{};
    std::string failure;
    ASSERT_TRUE(reliability::ChildProcess::runRecord<RunReport>(
        [failAt] { return runFlow(failAt); }, kChildTimeoutMs, &r, &failure))
        << failure;
    // Init and Uninit report success whatever failed; the sensor recovers.
    EXPECT_EQ(r.initResult, 0);
    EXPECT_EQ(r.uninitResult, 0);
    EXPECT_GE(r.secondRoundDetections, 1) << "no detection after a clean Init";
    if (r.failedAllocations == 0) {
      clean = r;
      break;
    }
    ASSERT_EQ(r.failedAllocations, 1);
    // Exactly one documented message names the site: nothing fails silently.
    ASSERT_EQ(r.tableMessages + r.buffer1Messages + r.buffer2Messages, 1)
        << "table " << r.tableMessages << ", buffer 1 " << r.buffer1Messages << ", buffer 2 "
        << r.buffer2Messages;
    if (r.tableMessages == 1) {
      ++tableRuns;
      // An incomplete table is not handed to NVRAM; detection runs untuned.
      EXPECT_EQ(r.nvramCalls, 0);
      EXPECT_GE(r.firstRoundDetections, 1);
      EXPECT_EQ(r.nullBufferMessages, 0);
    } else {
      r.buffer1Messages == 1 ? ++buffer1Runs : ++buffer2Runs;
      // Without buffers every frame's statistics are refused, so no detection.
      EXPECT_EQ(r.nvramCalls, 1);
      EXPECT_GE(r.nullBufferMessages, 1);
      EXPECT_EQ(r.firstRoundDetections, 0);
    }
  }
  ASSERT_LE(failAt, kMaxRuns) << "every run still had a failing allocation";
  // The table is one array of 70 row pointers plus 70 rows; then two buffers.
  EXPECT_EQ(tableRuns, 71);
  EXPECT_EQ(buffer1Runs, 1);
  EXPECT_EQ(buffer2Runs, 1);
  EXPECT_EQ(failAt, tableRuns + buffer1Runs + buffer2Runs + 1);
  // The failure-free run is the normal flow.
  EXPECT_EQ(clean.nvramCalls, 1);
  EXPECT_EQ(clean.tableMessages + clean.buffer1Messages + clean.buffer2Messages, 0);
  EXPECT_EQ(clean.nullBufferMessages, 0);
  EXPECT_GE(clean.firstRoundDetections, 1);
}

}  // namespace
