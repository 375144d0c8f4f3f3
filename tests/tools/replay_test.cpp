// Replay of statistics dumps: a dump tree written by the manager's own dump
// step during a closed-loop run must replay to the live run's verdicts, the
// CSV must have its fixed header, and broken dumps must give clear errors.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>

#include "closed_loop_runner.h"
#include "dump_replayer.h"
#include "flicker_dump_reader.h"
#include "host_data_path.h"
#include "host_log.h"
#include "host_properties.h"
#include "tools_test_util.h"
#include "tuning_choice.h"

namespace {

using flicker_loop::DumpReplayer;
using flicker_loop::ReplayResult;

class ReplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    flicker_host::setLogsQuiet(true);
    std::string error;
    ASSERT_TRUE(flicker_loop::TuningChoice::apply("open", &tuning_, &error)) << error;
    flicker_host::setDataRoot(root_.path());
    ASSERT_EQ(system(("mkdir -p '" + root_.path() + "/data/vendor/flicker/flko'").c_str()), 0);
  }
  void TearDown() override {
    flicker_host::clearProperty("vendor.debug.flk_dump");
    flicker_host::setDataRoot("");
  }

  // A live run with the dump on; returns its result.
  flicker_loop::LoopResult liveRunWithDump(const std::string& preset, const std::string& start,
                                           int frames) {
    flicker_host::setProperty("vendor.debug.flk_dump", static_cast<int64_t>(1));
    const flicker_loop::ScenarioBuilder builder = tools_test::smallScenario(
        preset, {{"start_state", start}, {"frames", std::to_string(frames)}});
    const flicker_loop::LoopResult result =
        flicker_loop::ClosedLoopRunner(builder.scenario(), builder.options()).run();
    flicker_host::clearProperty("vendor.debug.flk_dump");
    return result;
  }

  std::string dumpDir() const { return root_.path() + "/data/vendor/flicker/flko"; }

  // A valid flk.raw with `count` entries per column in folder `name`.
  void writeDump(const std::string& name, int32_t count) {
    const std::string dir = dumpDir() + "/" + name;
    ASSERT_EQ(system(("mkdir -p '" + dir + "'").c_str()), 0);
    std::string bytes(flicker_dump::flkRawSize(count), '\0');
    memcpy(&bytes[0], &count, sizeof(count));
    tools_test::writeFile(dir + "/flk.raw", bytes);
  }

  tools_test::TempDir root_;
  FlickerExtPara tuning_{};
};

TEST_F(ReplayTest, DumpsOfALiveRunReplayToItsVerdicts) {
  const flicker_loop::LoopResult live = liveRunWithDump("office-50hz", "60", 60);
  ASSERT_TRUE(live.ok) << live.error;
  ASSERT_FALSE(live.pairs.empty());
  // The dump does not hold the frame interval: feed each step the one the
  // manager used.
  std::vector<int64_t> intervals;
  for (const flicker_loop::PairRow& p : live.pairs) {
    intervals.push_back(p.intervalNs);
  }
  const ReplayResult replay = DumpReplayer(tuning_).replay(dumpDir(), intervals);
  ASSERT_TRUE(replay.ok) << replay.error;
  ASSERT_EQ(replay.steps.size(), live.pairs.size()) << "one dump per analysed pair";
  bool switched = false;
  for (size_t i = 0; i < replay.steps.size(); ++i) {
    EXPECT_EQ(replay.steps[i].stateAfterHz, live.pairs[i].stateHz) << "step " << i;
    EXPECT_EQ(replay.steps[i].score50, live.pairs[i].score50) << "step " << i;
    EXPECT_EQ(replay.steps[i].score60, live.pairs[i].score60) << "step " << i;
    EXPECT_EQ(replay.steps[i].exposureUs, live.pairs[i].exposureUs) << "step " << i;
    switched = switched || replay.steps[i].verdictHz == 50;
  }
  EXPECT_TRUE(switched) << "the replay includes the verdict that moved the state";
}

TEST_F(ReplayTest, CsvHasTheFixedHeaderAndOneRowPerStep) {
  const flicker_loop::LoopResult live = liveRunWithDump("office-50hz", "60", 30);
  ASSERT_TRUE(live.ok) << live.error;
  const tools_test::CommandOutput r =
      tools_test::runFlickerSim({"replay", dumpDir(), "--csv", "--frame-interval-us", "34000"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::istringstream lines(r.out);
  std::string line;
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(line, "step,state,score50,score60");
  size_t rows = 0;
  while (std::getline(lines, line)) {
    int step = -1, state = -1, s50 = -1, s60 = -1;
    ASSERT_EQ(sscanf(line.c_str(), "%d,%d,%d,%d", &step, &state, &s50, &s60), 4) << line;
    EXPECT_EQ(step, static_cast<int>(rows));
    EXPECT_TRUE(state == 0 || state == 50 || state == 60) << line;
    EXPECT_TRUE(s50 >= 0 && s50 <= 100 && s60 >= 0 && s60 <= 100) << line;
    ++rows;
  }
  EXPECT_EQ(rows, live.pairs.size());
}

TEST_F(ReplayTest, FoldersAreTakenInNumericOrder) {
  for (const char* name : {"1000", "002", "999", "010", "notes"}) {
    writeDump(name, 18);
  }
  std::vector<std::string> folders;
  std::string error;
  ASSERT_TRUE(DumpReplayer::listFolders(dumpDir(), &folders, &error)) << error;
  EXPECT_EQ(folders, (std::vector<std::string>{"002", "010", "999", "1000"}));
}

struct BrokenDump {
  const char* name;
  std::function<std::string()> bytes;  // content of 001/flk.raw (000 is valid)
  const char* proves;
};

void PrintTo(const BrokenDump& c, std::ostream* os) {
  *os << c.proves;
}

class BrokenDumpTest : public ReplayTest, public ::testing::WithParamInterface<BrokenDump> {};

TEST_P(BrokenDumpTest, EndsWithAnErrorNamingTheFile) {
  writeDump("000", 18);
  const std::string broken = dumpDir() + "/001";
  ASSERT_EQ(mkdir(broken.c_str(), 0770), 0);
  const std::string content = GetParam().bytes();
  if (!content.empty()) {
    tools_test::writeFile(broken + "/flk.raw", content);
  }
  const tools_test::CommandOutput r = tools_test::runFlickerSim({"replay", dumpDir()});
  EXPECT_EQ(r.status, 1) << GetParam().proves;
  EXPECT_NE(r.err.find("001/flk.raw"), std::string::npos) << r.err;
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << "one line: " << r.err;
  EXPECT_NE(r.out.find("000"), std::string::npos) << "the good step is still reported";
}

std::string withCount(int32_t count, size_t size) {
  std::string bytes(size, '\0');
  memcpy(&bytes[0], &count, sizeof(count));
  return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Files, BrokenDumpTest,
    ::testing::Values(
        // The folder exists but the dump step never wrote its file.
        BrokenDump{"Missing", [] { return std::string(); }, "missing flk.raw"},
        // Cut inside the second column.
        BrokenDump{"Truncated", [] { return withCount(18, flicker_dump::flkRawSize(18) - 100); },
                   "truncated file"},
        // A count no statistics buffer can hold.
        BrokenDump{"HugeCount", [] { return withCount(1 << 30, flicker_dump::flkRawSize(18)); },
                   "corrupt count"},
        // A negative count.
        BrokenDump{"NegativeCount", [] { return withCount(-5, flicker_dump::flkRawSize(18)); },
                   "negative count"},
        // Shorter than the count field itself.
        BrokenDump{"Tiny", [] { return std::string("ab"); }, "two-byte file"}),
    [](const ::testing::TestParamInfo<BrokenDump>& info) { return info.param.name; });

TEST_F(ReplayTest, FolderWithoutDumpsIsAnError) {
  const tools_test::CommandOutput r = tools_test::runFlickerSim({"replay", root_.path()});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("no numbered dump folders"), std::string::npos) << r.err;
}

}  // namespace
