// flicker-sim's command line: usage errors give status 2 and one line naming
// the problem; the outputs have their documented shapes.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "cli_options.h"
#include "host_log.h"
#include "tools_test_util.h"

namespace {

struct UsageCase {
  std::vector<std::string> args;
  const char* expected;  // part of the one-line reason
};

class UsageErrorTest : public ::testing::TestWithParam<UsageCase> {};

TEST_P(UsageErrorTest, ExitsWithStatus2AndOneLineReason) {
  const UsageCase& c = GetParam();
  const tools_test::CommandOutput r = tools_test::runFlickerSim(c.args);
  EXPECT_EQ(r.status, 2);
  const std::string lastLine = r.err.substr(r.err.rfind("flicker-sim: "));
  EXPECT_NE(lastLine.find(c.expected), std::string::npos) << r.err;
  EXPECT_EQ(std::count(lastLine.begin(), lastLine.end(), '\n'), 1) << r.err;
  EXPECT_TRUE(r.out.empty()) << "nothing runs on bad input: " << r.out;
}

INSTANTIATE_TEST_SUITE_P(Table, UsageErrorTest,
                         ::testing::Values(
                             // No subcommand at all.
                             UsageCase{{}, "no command"},
                             // A subcommand that does not exist.
                             UsageCase{{"walk"}, "unknown command 'walk'"},
                             // An option no subcommand knows.
                             UsageCase{{"run", "--colour", "red"}, "unknown option --colour"},
                             // A scenario key with a value that is not a number.
                             UsageCase{{"run", "--frames", "many"}, "bad value 'many' for frames"},
                             // A number out of range.
                             UsageCase{{"run", "--fps", "0"}, "bad value '0' for fps"},
                             // Trailing garbage after a number.
                             UsageCase{{"run", "--seed", "12x"}, "bad value '12x' for seed"},
                             // A value option at the end without its value.
                             UsageCase{{"run", "--plot"}, "--plot needs a value"},
                             // A flag given a value.
                             UsageCase{{"run", "--csv=yes"}, "takes no value"},
                             // An unknown scenario that is not a file either.
                             UsageCase{{"run", "office-70hz"}, "unknown scenario 'office-70hz'"},
                             // Mutually exclusive output formats.
                             UsageCase{{"run", "--csv", "--json"}, "exclude each other"},
                             // Replay without its folder.
                             UsageCase{{"replay"}, "exactly one dump folder"},
                             // A negative frame interval.
                             UsageCase{{"replay", "/tmp", "--frame-interval-us", "-5"},
                                       "--frame-interval-us"},
                             // A grid dimension that does not exist.
                             UsageCase{{"sweep", "--by", "colour"}, "for --by"},
                             // Both grid sizes.
                             UsageCase{{"sweep", "--quick", "--full"}, "exclude each other"}));

TEST(CliOptionsTest, KeepsOrderAndSplitsPositionals) {
  flicker_cli::CliOptions o;
  std::string error;
  ASSERT_TRUE(o.parse({"office-50hz", "--fps=25", "--csv", "--fps", "30", "--", "--x"},
                      {{"csv", false}}, {"fps"}, &error))
      << error;
  EXPECT_EQ(o.value("fps"), "30") << "the later setting wins";
  EXPECT_TRUE(o.has("csv"));
  EXPECT_EQ(o.positionals(), (std::vector<std::string>{"office-50hz", "--x"}));
  ASSERT_EQ(o.ordered().size(), 3u);
  EXPECT_EQ(o.ordered()[0].second, "25");
}

TEST(CliTest, HelpOfEveryCommandSucceeds) {
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"--help"}, {"run", "--help"}, {"replay", "--help"}, {"sweep", "--help"}}) {
    const tools_test::CommandOutput r = tools_test::runFlickerSim(args);
    EXPECT_EQ(r.status, 0) << args.front();
    EXPECT_NE(r.out.find("usage: flicker-sim"), std::string::npos) << args.front();
  }
}

TEST(CliTest, ScenarioFileErrorsNameFileAndLine) {
  tools_test::TempDir dir;
  const std::string path = dir.path() + "/scene.txt";
  tools_test::writeFile(path, "# a scene\nfps = 25\nmains = 55\n");
  const tools_test::CommandOutput r = tools_test::runFlickerSim({"run", path});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find(path + ":3: bad value '55' for mains"), std::string::npos) << r.err;
}

TEST(CliTest, RunCsvAndJsonAndPlot) {
  flicker_host::setLogsQuiet(true);
  tools_test::TempDir dir;
  std::vector<std::string> base = {"run", "office-50hz", "--frames", "40", "--start_state", "60"};
  for (const auto& kv : tools_test::smallGeometry()) {
    base.push_back("--" + kv.first);
    base.push_back(kv.second);
  }

  std::vector<std::string> csvArgs = base;
  csvArgs.push_back("--csv");
  const tools_test::CommandOutput csv = tools_test::runFlickerSim(csvArgs);
  ASSERT_EQ(csv.status, 0) << csv.err;
  std::istringstream lines(csv.out);
  std::string header;
  std::getline(lines, header);
  EXPECT_EQ(header,
            "frame,sensor,time_ms,exposure_us,state,score50,score60,rate_active,truth_hz,"
            "interval_us");
  std::string row;
  int rows = 0;
  while (std::getline(lines, row)) {
    EXPECT_EQ(std::count(row.begin(), row.end(), ','), 9) << row;
    ++rows;
  }
  EXPECT_GT(rows, 5);

  std::vector<std::string> jsonArgs = base;
  jsonArgs.push_back("--json");
  const tools_test::CommandOutput json = tools_test::runFlickerSim(jsonArgs);
  ASSERT_EQ(json.status, 0) << json.err;
  EXPECT_NE(json.out.find("\"locked_hz\": 50"), std::string::npos) << json.out;
  EXPECT_NE(json.out.find("\"right\": true"), std::string::npos);

  std::vector<std::string> plotArgs = base;
  const std::string svg = dir.path() + "/run.svg";
  plotArgs.insert(plotArgs.end(), {"--plot", svg});
  const tools_test::CommandOutput text = tools_test::runFlickerSim(plotArgs);
  ASSERT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("locked 50 Hz at frame"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("-> right"), std::string::npos) << text.out;
  std::ifstream in(svg);
  std::stringstream picture;
  picture << in.rdbuf();
  EXPECT_EQ(picture.str().rfind("<svg", 0), 0u);
  EXPECT_NE(picture.str().find("100 Hz fit"), std::string::npos) << "the last pair is drawn";
}

TEST(CliTest, UnwritablePlotIsAFailure) {
  flicker_host::setLogsQuiet(true);
  const tools_test::CommandOutput r =
      tools_test::runFlickerSim({"run", "daylight", "--frames", "10", "--width", "640", "--height",
                                 "480", "--plot", "/nonexistent-folder/x.svg"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot write the plot"), std::string::npos) << r.err;
}

}  // namespace
