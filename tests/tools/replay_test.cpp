// Replay of statistics dumps: a dump tree written by the manager's own dump
// step during a closed-loop run must replay to the live run's verdicts, the
// CSV must have its fixed header, and broken dumps must give clear errors.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <tuple>

#include <nlohmann/json.hpp>
#include "dump_replayer.h"
#include "flicker_dump_reader.h"
#include "host_data_path.h"
#include "host_properties.h"

#include "tools_test_util.h"

namespace {

using flicker_loop::DumpReplayer;

// A flk.raw of `size` bytes whose count field holds `count`.
std::string flkRaw(int32_t count, size_t size) {
  std::string bytes(size, '\0');
  memcpy(&bytes[0], &count, std::min(size, sizeof(count)));
  return bytes;
}

class ReplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tools_test::useOpenTuning(&tuning_);
    flicker_host::setDataRoot(root_.path());
    ASSERT_EQ(system(("mkdir -p '" + dumpDir() + "'").c_str()), 0);
  }
  void TearDown() override {
    flicker_host::clearProperty("vendor.debug.flk_dump");
    flicker_host::setDataRoot("");
  }

  std::string dumpDir() const { return root_.path() + "/data/vendor/flicker/flko"; }

  // Folder `name` of the dump tree with `bytes` as its flk.raw (none when empty).
  void writeDump(const std::string& name, const std::string& bytes) {
    ASSERT_EQ(mkdir((dumpDir() + "/" + name).c_str(), 0770), 0);
    if (!bytes.empty())
      tools_test::writeFile(dumpDir() + "/" + name + "/flk.raw", bytes);
  }

  tools_test::TempDir root_;
  FlickerExtPara tuning_{};
};

TEST_F(ReplayTest, DumpsOfALiveRunReplayToItsVerdictsAndItsCsv) {
  flicker_host::setProperty("vendor.debug.flk_dump", static_cast<int64_t>(1));
  const flicker_loop::LoopResult live =
      tools_test::runSmall("office-50hz", {{"start_state", "60"}, {"frames", "60"}});
  flicker_host::clearProperty("vendor.debug.flk_dump");
  ASSERT_TRUE(live.ok) << live.error;
  // The dump does not hold the frame interval: each step gets the manager's.
  std::vector<int64_t> intervals;
  for (const flicker_loop::PairRow& p : live.pairs) intervals.push_back(p.intervalNs);
  const flicker_loop::ReplayResult replay = DumpReplayer(tuning_).replay(dumpDir(), intervals);
  ASSERT_TRUE(replay.ok) << replay.error;
  ASSERT_EQ(replay.steps.size(), live.pairs.size()) << "one dump per analysed pair";
  bool switched = false;
  for (size_t i = 0; i < replay.steps.size(); ++i) {
    const flicker_loop::ReplayStep& r = replay.steps[i];
    EXPECT_EQ(std::make_tuple(r.stateAfterHz, r.score50, r.score60, r.exposureUs),
              std::make_tuple(live.pairs[i].stateHz, live.pairs[i].score50, live.pairs[i].score60,
                              live.pairs[i].exposureUs))
        << "step " << i;
    switched = switched || r.verdictHz == 50;
  }
  EXPECT_TRUE(switched) << "the replay includes the verdict that moved the state";

  const tools_test::CommandOutput csv =
      tools_test::runFlickerSim({"replay", dumpDir(), "--csv", "--frame-interval-us", "34000"});
  ASSERT_EQ(csv.status, 0) << csv.err;
  std::istringstream lines(csv.out);
  std::string line;
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(line, "step,state,score50,score60");
  // One row per step, the step first, in order.
  size_t rows = 0;
  for (; std::getline(lines, line); ++rows)
    EXPECT_EQ(line.rfind(std::to_string(rows) + ",", 0), 0u);
  EXPECT_EQ(rows, live.pairs.size());

  // JSON: every step with its profile; the deciding step is the 50 Hz
  // verdict against the recorded 60 Hz, and its pair shows the 100 Hz band.
  const std::string picture = root_.path() + "/replay.svg";
  const tools_test::CommandOutput json =
      tools_test::runFlickerSim({"replay", dumpDir(), "--json", "--plot", picture});
  ASSERT_EQ(json.status, 0) << json.err;
  const nlohmann::json doc = nlohmann::json::parse(json.out);
  ASSERT_EQ(doc.at("steps").size(), live.pairs.size());
  const size_t deciding = doc.at("deciding_step").get<size_t>();
  const nlohmann::json& step = doc["steps"][deciding];
  EXPECT_EQ(step.at("verdict_hz"), 50);
  EXPECT_EQ(step.at("applied_hz"), 60);
  const nlohmann::json& profile = step.at("profile");
  const size_t points = profile.at("time_ms").size();
  EXPECT_GT(points, 10u);
  for (const char* series : {"ratio", "band100", "band120"})
    EXPECT_EQ(profile.at(series).size(), points) << series;
  EXPECT_GT(profile.at("amplitude100").get<double>(), 5 * profile.at("amplitude120").get<double>());
  EXPECT_NE(tools_test::readFile(picture).find(
                "verdict 50 Hz against the recorded 60 Hz: fitted 100 Hz band"),
            std::string::npos);
}

TEST_F(ReplayTest, FoldersAreTakenInNumericOrder) {
  for (const char* name : {"1000", "002", "999", "010", "notes"}) writeDump(name, "");
  std::vector<std::string> folders;
  std::string error;
  ASSERT_TRUE(DumpReplayer::listFolders(dumpDir(), &folders, &error)) << error;
  EXPECT_EQ(folders, (std::vector<std::string>{"002", "010", "999", "1000"}));
  // A tree without numbered folders is an error.
  const tools_test::CommandOutput r = tools_test::runFlickerSim({"replay", root_.path()});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("no numbered dump folders"), std::string::npos) << r.err;
}

TEST_F(ReplayTest, BrokenDumpEndsWithAnErrorNamingTheFile) {
  const size_t good = flicker_dump::flkRawSize(18);
  const std::pair<const char*, std::string> rows[] = {
      // The folder exists but the dump step never wrote its file.
      {"missing", ""},
      {"cut inside the second column", flkRaw(18, good - 100)},
      // A count no statistics buffer can hold; a negative count.
      {"huge count", flkRaw(1 << 30, good)},
      {"negative count", flkRaw(-5, good)},
      {"shorter than the count field itself", "ab"},
  };
  writeDump("000", flkRaw(18, good));
  for (const auto& [what, bytes] : rows) {
    SCOPED_TRACE(what);
    std::filesystem::remove_all(dumpDir() + "/001");
    writeDump("001", bytes);
    const tools_test::CommandOutput r = tools_test::runFlickerSim({"replay", dumpDir()});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("001/flk.raw"), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << "one line: " << r.err;
    EXPECT_NE(r.out.find("000"), std::string::npos) << "the good step is still reported";
  }
}

}  // namespace
