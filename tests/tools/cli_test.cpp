// flicker-sim's command line: usage errors (options, numbers, scenario files)
// give status 2 and one line naming the problem; the outputs of a run have
// their documented shapes.
#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <map>

#include "host_properties.h"
#include "host_trace.h"
#include "tools_test_util.h"
#include "trace_events.h"

namespace {

using tools_test::runFlickerSim;

TEST(CliTest, UsageErrorsExitWithStatus2AndOneLineReason) {
  const struct {
    std::vector<std::string> args;
    const char* scenarioFile;  // when set: written to a file whose path is appended to args
    const char* expected;      // part of the one-line reason (after the file's path, if any)
  } rows[] = {
      // No subcommand; a subcommand or an option that does not exist (the
      // commands share one option parser: its other refusals are run's).
      {{}, nullptr, "no command"},
      {{"walk"}, nullptr, "unknown command 'walk'"},
      {{"run", "--colour", "red"}, nullptr, "unknown option --colour"},
      // Whole numbers: a fraction (anything after the digits is refused).
      {{"run", "--frames", "42.0"}, nullptr, "bad value '42.0' for frames"},
      // Reals: out of range, and not finite (a NaN slips through plain range checks).
      {{"run", "--fps", "0"}, nullptr, "bad value '0' for fps"},
      {{"run", "--fps", "nan"}, nullptr, "bad value 'nan' for fps"},
      // A value option without its value; a flag given one.
      {{"run", "--plot"}, nullptr, "--plot needs a value"},
      {{"run", "--csv=yes"}, nullptr, "takes no value"},
      // An unknown scenario that is not a file either.
      {{"run", "office-70hz"}, nullptr, "unknown scenario 'office-70hz'"},
      // Mutually exclusive output formats and grid sizes.
      {{"run", "--csv", "--json"}, nullptr, "exclude each other"},
      {{"replay", "/tmp", "--csv", "--json"}, nullptr, "exclude each other"},
      // The evaluation (also under its former name sweep): grid sizes, a
      // list with an unknown dimension, filters, numbers out of range, a
      // trace that several workers would write, a comparison of soaks,
      // tunings refused before any cell runs, an unknown option and a stray
      // argument.
      {{"sweep", "--quick", "--full"}, nullptr, "exclude each other"},
      {{"eval", "--by", "fps,colour"}, nullptr, "bad value 'colour' for --by"},
      {{"eval", "--only", "colour=red"}, nullptr, "bad value 'colour=red' for --only"},
      {{"eval", "--only", "mains"}, nullptr, "for --only: expected DIM=VALUE"},
      {{"eval", "--only", "mains=70"}, nullptr, "no cell of the default grid"},
      {{"eval", "--soak-hours", "1", "--only", "mains=50"}, nullptr, "no scene without"},
      {{"eval", "--seconds", "0"}, nullptr, "bad value '0' for --seconds"},
      {{"eval", "--seed-base", "-1"}, nullptr, "bad value '-1' for --seed-base"},
      {{"eval", "--soak-hours", "0"}, nullptr, "bad value '0' for --soak-hours"},
      {{"eval", "--jobs", "two"}, nullptr, "bad value 'two' for --jobs"},
      {{"eval", "--timing-runs", "-5"}, nullptr, "bad value '-5' for --timing-runs"},
      {{"eval", "--trace", "t.json", "--jobs", "2"}, nullptr, "--trace needs the cells"},
      {{"eval", "--soak-hours", "1", "--compare"}, nullptr, "exclude each other"},
      {{"eval", "--quick", "--set", "35=1"}, nullptr, "unknown tuning field '35'"},
      {{"eval", "--baseline-set", "hold=1"}, nullptr, "baseline: unknown tuning"},
      {{"eval", "--baseline-tuning", "no.bin"}, nullptr, "for --baseline-tuning"},
      {{"eval", "--bogus"}, nullptr, "unknown option --bogus"},
      {{"eval", "quick"}, nullptr, "takes no arguments, got 'quick'"},
      // Replay without its folder; a negative frame interval.
      {{"replay"}, nullptr, "exactly one dump folder"},
      {{"replay", "/tmp", "--frame-interval-us", "-5"}, nullptr, "--frame-interval-us"},
      // Scenario files name the file and line: a bad value after good lines
      // and a comment, a line without '=', an unknown key, an unknown lamp.
      {{"run"}, "# a scene\nfps = 25\nmains = 55\n", ":3: bad value '55' for mains"},
      {{"run"}, "fps 30\n", ":1: expected 'key = value'"},
      {{"run"}, "# x\ncolour = red\n", ":2: unknown key 'colour'"},
      {{"run"}, "light = candle\n", ":1: bad value 'candle' for light"},
      // A tuning that is neither open, host nor a file; an image too short
      // to be one; settings without '=' or of no field; a stray argument.
      {{"run", "--tuning", "nosuch.bin"}, nullptr, "bad value 'nosuch.bin' for --tuning"},
      {{"run", "--tuning"}, "short", " is shorter than 23520 bytes"},
      {{"replay", "/tmp", "--set", "hold_off"}, nullptr, "expected NAME=VALUE"},
      {{"tuning", "--set", "nope=1"}, nullptr, "unknown tuning field 'nope'"},
      {{"tuning", "extra"}, nullptr, "takes no arguments"},
  };
  for (const auto& row : rows) {
    std::vector<std::string> args = row.args;
    tools_test::TempDir dir;
    std::string expected = row.expected;
    if (row.scenarioFile != nullptr) {
      tools_test::writeFile(dir.path() + "/scene.txt", row.scenarioFile);
      args.push_back(dir.path() + "/scene.txt");
      expected.insert(0, args.back());
    }
    const tools_test::CommandOutput r = runFlickerSim(args);
    const std::string lastLine = r.err.substr(std::min(r.err.rfind("flicker-sim: "), r.err.size()));
    EXPECT_EQ(r.status, 2) << expected;
    EXPECT_NE(lastLine.find(expected), std::string::npos) << r.err;
    EXPECT_EQ(std::count(lastLine.begin(), lastLine.end(), '\n'), 1) << r.err;
    EXPECT_TRUE(r.out.empty()) << "nothing runs on bad input: " << r.out;
  }
}

// --keys lists every key once, with the default of the scenario given and
// of the options before it.
TEST(CliTest, KeysShowTheScenariosDefaults) {
  struct Row {
    std::vector<std::string> args;
    const char* key;
    const char* value;
  } rows[] = {
      {{"run", "--keys"}, "scenario", "office-50hz"},
      {{"run", "home-60hz", "--keys"}, "mains", "60"},
      {{"run", "home-60hz", "--fps", "25", "--keys"}, "fps", "25"},
      {{"run", "light-switch", "--keys"}, "switch_at", "4"},
      {{"run", "--keys"}, "switch_at", "none"},
  };
  for (const Row& row : rows) {
    const tools_test::CommandOutput r = runFlickerSim(row.args);
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    std::string line;
    std::map<std::string, std::string> defaults;
    for (std::getline(lines, line), std::getline(lines, line); std::getline(lines, line);) {
      std::istringstream fields(line);
      std::string key, value;
      fields >> key >> value;
      EXPECT_EQ(defaults.count(key), 0u) << "listed twice: " << key;
      defaults[key] = value;
    }
    EXPECT_EQ(defaults.size(), flicker_loop::ScenarioBuilder::keys().size());
    EXPECT_EQ(defaults[row.key], row.value) << r.out;
  }
}

// The CSV has its fixed header and one well-formed row per analysed pair;
// JSON and text give the lock; the plot is an SVG with the deciding pair drawn.
TEST(CliTest, RunOutputs) {
  tools_test::TempDir dir;
  auto run = [](std::vector<std::string> more) {
    more.insert(more.begin(), {"--frames", "40", "--start_state", "60"});
    return runFlickerSim(tools_test::smallRunArgs("office-50hz", more));
  };
  const tools_test::CommandOutput csv = run({"--csv"});
  ASSERT_EQ(csv.status, 0) << csv.err;
  std::istringstream lines(csv.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line,
            "frame,sensor,time_ms,exposure_us,state,score50,score60,rate_active,truth_hz,"
            "interval_us");
  int rows = 0;
  for (; std::getline(lines, line); ++rows) {
    int frame = -1, sensor = -1, state = -1;
    ASSERT_EQ(sscanf(line.c_str(), "%d,%d,%*f,%*d,%d", &frame, &sensor, &state), 3) << line;
    EXPECT_TRUE(std::count(line.begin(), line.end(), ',') == 9 && frame >= 0 && frame < 40 &&
                sensor == 0 && (state == 50 || state == 60))
        << line;
  }
  EXPECT_GT(rows, 5);

  const tools_test::CommandOutput json = run({"--json"});
  ASSERT_EQ(json.status, 0) << json.err;
  EXPECT_NE(json.out.find("\"locked_hz\": 50"), std::string::npos) << json.out;
  EXPECT_NE(json.out.find("\"right\": true"), std::string::npos) << json.out;

  const tools_test::CommandOutput text = run({"--plot", dir.path() + "/run.svg"});
  ASSERT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("locked 50 Hz at frame"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("-> right"), std::string::npos) << text.out;
  const std::string svg = tools_test::readFile(dir.path() + "/run.svg");
  EXPECT_EQ(svg.rfind("<svg", 0), 0u);
  // The profile drawn is the pair that switched, named and marked; counts
  // agree with their nouns.
  EXPECT_NE(svg.find("The pair that switched to 50 Hz (frame"), std::string::npos);
  EXPECT_NE(svg.find("100 Hz fit"), std::string::npos);
  size_t marks = 0;
  for (size_t at = svg.find("deciding pair: switch"); at != std::string::npos;
       at = svg.find("deciding pair: switch", at + 1))
    ++marks;
  EXPECT_EQ(marks, 2u) << "marked on the state and the score panels";
  EXPECT_NE(svg.find("1 switch,"), std::string::npos);

  const tools_test::CommandOutput unwritable = run({"--plot", "/nonexistent-folder/x.svg"});
  EXPECT_EQ(unwritable.status, 1);
  EXPECT_NE(unwritable.err.find("cannot write the plot"), std::string::npos) << unwritable.err;
}

// --trace writes a trace a viewer opens: per frame on the 3A thread the
// manager's part of the frame with the statistics intake and the post, on
// the worker each wake-up with the detection in it.
TEST(CliTest, TraceShowsEachFrameAndEachAnalysis) {
  tools_test::TempDir dir;
  const std::string file = dir.path() + "/trace.json";
  char before[16] = {};
  prctl(PR_GET_NAME, before, 0, 0, 0);
  const tools_test::CommandOutput r = runFlickerSim(tools_test::smallRunArgs(
      "office-50hz", {"--frames", "12", "--start_state", "60", "--csv", "--trace", file}));
  flicker_host::setTraceFile("");  // closes the file, as the program's exit does
  flicker_host::clearProperty("debug.atrace.tags.enableflags");
  ASSERT_EQ(r.status, 0) << r.err;
  char after[16] = {};
  prctl(PR_GET_NAME, after, 0, 0, 0);
  EXPECT_STREQ(after, before) << "the caller's thread gets its name back";
  const size_t pairs = static_cast<size_t>(std::count(r.out.begin(), r.out.end(), '\n')) - 1;

  const trace_test::TraceFile trace = trace_test::readTraceEvents(tools_test::readFile(file));
  ASSERT_EQ(trace.error, "");
  std::map<std::string, std::vector<trace_test::Slice>> byThread;  // "thread/slice" -> slices
  for (const trace_test::Slice& s : trace.slices) {
    const std::string name = s.name.rfind("frame ", 0) == 0 ? "frame" : s.name;
    byThread[trace.threads.at(s.tid) + "/" + name + "/" + std::to_string(s.depth)].push_back(s);
  }
  EXPECT_EQ(byThread["3A thread/frame/0"].size(), 12u);
  // Statistics are taken inside a frame, at least for every pair analysed.
  EXPECT_GE(byThread["3A thread/parseFLK/1"].size(), pairs);
  EXPECT_LE(byThread["3A thread/parseFLK/1"].size(), 12u);
  EXPECT_EQ(byThread["3A thread/post/1"].size(), pairs) << "one post per analysed pair";
  EXPECT_EQ(byThread["FlickerMgrThd/FLK algo/1"].size(), pairs) << "a detection per wake-up";
  EXPECT_GE(byThread["FlickerMgrThd/wake-up/0"].size(), pairs);
  // Each detection starts after the post that asked for it.
  const auto& posts = byThread["3A thread/post/1"];
  const auto& detections = byThread["FlickerMgrThd/FLK algo/1"];
  for (size_t i = 0; i < std::min(posts.size(), detections.size()); ++i)
    EXPECT_GE(detections[i].beginUs, posts[i].beginUs) << i;
}

}  // namespace
