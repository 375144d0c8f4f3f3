// The evaluation from the command line: worker processes give the serial
// run's results to the byte (tuning fields set by name are tuning_test.cpp's),
// the progress bar tells the time left, and a comparison
// names the cells a tuning change flipped with the options that run each
// again.
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "case_names.h"
#include "cli_common.h"
#include "eval_cell.h"
#include "tools_test_util.h"

namespace {

using tools_test::readFile;
using tools_test::runFlickerSim;

// The text without its last line (the wall time and worker count).
std::string withoutLastLine(const std::string& text) {
  const size_t end = text.rfind('\n', text.size() - 2);
  return end == std::string::npos ? "" : text.substr(0, end + 1);
}

// The quick grid's cells, in runs of a second (the lock, the light switch and
// the scenes without flicker all happen within it) to keep the suite fast.
TEST(EvalCommand, WorkersGiveTheSerialRunsResults) {
  tools_test::useOpenTuning();
  tools_test::TempDir dir;
  auto run = [&dir](const std::string& jobs) {
    return runFlickerSim({"eval", "--quick", "--seconds", "1", "--timing-runs", "0", "--jobs", jobs,
                          "--csv", dir.path() + "/" + jobs + ".csv"});
  };
  const tools_test::CommandOutput serial = run("1");
  const tools_test::CommandOutput parallel = run("3");
  ASSERT_EQ(serial.status, 0) << serial.err;
  ASSERT_EQ(parallel.status, 0) << parallel.err;
  const std::string rows = readFile(dir.path() + "/1.csv");
  EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 29) << "the quick grid's 28 cells";
  EXPECT_EQ(readFile(dir.path() + "/3.csv"), rows);
  EXPECT_EQ(withoutLastLine(parallel.out), withoutLastLine(serial.out));
  EXPECT_NE(parallel.out.find("3 worker processes"), std::string::npos) << parallel.out;
}

// A soak is planned as runs of the scenes without flicker and shared among
// the workers like a grid's cells; its report counts them.
TEST(EvalCommand, SoakRunsOnWorkers) {
  tools_test::useOpenTuning();
  const tools_test::CommandOutput r =
      runFlickerSim({"eval", "--soak-hours", "0.001", "--seconds", "1", "--only",
                     "geometry=640x480@12us", "--only", "light=daylight", "--jobs", "2"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("0.001 simulated hours in 4 runs of scenes without mains flicker"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("4 runs, 0.00 simulated hours: 0 false switches (0.00 per hour)"),
            std::string::npos)
      << r.out;
}

// flicker-eval is the same command: its messages carry its own name.
TEST(EvalCommand, NamesTheProgramItRunsAs) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = flicker_cli::evalCommand({"--jobs", "0"},
                                              flicker_cli::CliIo{out, err, false, "flicker-eval"});
  EXPECT_EQ(status, 2);
  EXPECT_EQ(err.str(), "flicker-eval: bad value '0' for --jobs: expected 1..256\n");
  std::ostringstream help;
  EXPECT_EQ(flicker_cli::evalCommand({"--help"}, {help, err, false, "flicker-eval"}), 0);
  EXPECT_EQ(help.str().rfind("usage: flicker-eval [options]\n", 0), 0u) << help.str();
}

TEST(ProgressBar, TellsTheCellsTheTimeSpentAndTheTimeLeft) {
  const struct {
    int done, total;
    double elapsedS;
    const char* text;  // after the bar
  } rows[] = {
      // Nothing done yet: no estimate.
      {0, 10, 0.0, "0/10 cells, 0:00 elapsed"},
      // Half done in 30 s: as long again.
      {5, 10, 30.0, "5/10 cells, 0:30 elapsed, about 0:30 left"},
      // One cell of the default grid in 2 s: 1015 more at that rate.
      {1, 1016, 2.0, "1/1016 cells, 0:02 elapsed, about 33:50 left"},
      // Hours; the last cell.
      {999, 1000, 4000.0, "999/1000 cells, 1:06:40 elapsed, about 0:04 left"},
      // Done: no estimate left.
      {10, 10, 75.0, "10/10 cells, 1:15 elapsed"},
  };
  for (const auto& row : rows) {
    const std::string text =
        flicker_cli::ProgressBar::text("grid", "cells", row.done, row.total, row.elapsedS);
    const size_t bar = text.find("] ");
    ASSERT_NE(bar, std::string::npos) << text;
    EXPECT_EQ(text.substr(bar + 2), row.text);
    const long filled = std::count(text.begin(), text.end(), '#');
    EXPECT_EQ(filled, 30L * row.done / row.total) << text;
  }
}

// What one comparison of the real program printed.
struct Compared {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs flicker-sim as a user does: a comparison needs worker processes that
// have not run the manager yet, which this test process has.
Compared runProgram(const std::vector<std::string>& args) {
  tools_test::TempDir dir;
  std::string command = std::string(FLICKER_SIM_LAUNCHER) + " " + FLICKER_SIM_PROGRAM;
  for (const std::string& a : args) command += " '" + a + "'";
  command += " 2>" + dir.path() + "/err";
  Compared c;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr)
    return c;
  char chunk[4096];
  for (size_t n; (n = fread(chunk, 1, sizeof(chunk), pipe)) > 0;) c.out.append(chunk, n);
  const int status = pclose(pipe);
  c.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  c.err = readFile(dir.path() + "/err");
  return c;
}

// The words of a rerun line, quotes taken off as a shell does.
std::vector<std::string> shellWords(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream in(line);
  for (std::string w; in >> w;) {
    w.erase(std::remove(w.begin(), w.end(), '\''), w.end());
    words.push_back(w);
  }
  return words;
}

// The cells a rerun line picks from the quick grid.
std::vector<flicker_eval::EvalCell> cellsOfRerun(const std::string& line) {
  const std::vector<std::string> words = shellWords(line);
  std::vector<std::pair<std::string, std::string>> only;
  long base = -1;
  for (size_t i = 0; i + 1 < words.size(); ++i) {
    if (words[i] == "--only") {
      const size_t eq = words[i + 1].find('=');
      only.emplace_back(words[i + 1].substr(0, eq), words[i + 1].substr(eq + 1));
    } else if (words[i] == "--seed-base") {
      base = std::stol(words[i + 1]);
    }
  }
  EXPECT_NE(std::find(words.begin(), words.end(), "--quick"), words.end()) << line;
  EXPECT_EQ(base, 0) << line;
  return flicker_eval::filterCells(
      flicker_eval::buildGrid(flicker_eval::GridSize::kQuick, static_cast<uint64_t>(base)), only);
}

struct CompareCase {
  const char* name;
  std::vector<std::string> tunings;
  const char* from;     // verdict of the four cells that start wrong, baseline
  const char* to;       // and candidate
  const char* warning;  // a part of stderr
};

CASE_PRINTS_ITS_NAME(CompareCase)

class ComparisonTest : public ::testing::TestWithParam<CompareCase> {};

// Of the quick grid's four still cells of a steady lamp at 25 fps, two start
// in the wrong state and lock; a least ripple amplitude no lamp reaches keeps
// them from locking.
TEST_P(ComparisonTest, ListsTheCellsThatChangedVerdict) {
  const CompareCase& c = GetParam();
  std::vector<std::string> args = {
      "eval",          "--quick", "--only",    "mains=50", "--only", "mains=60", "--only", "fps=25",
      "--timing-runs", "0",       "--seconds", "1",        "--jobs", "2",        "--json"};
  args.insert(args.end(), c.tunings.begin(), c.tunings.end());
  const Compared r = runProgram(args);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find(c.warning), std::string::npos) << r.err;
  const nlohmann::json json = nlohmann::json::parse(r.out);
  ASSERT_EQ(json.at("changed").size(), 2u) << r.out;
  for (const auto& change : json.at("changed")) {
    EXPECT_EQ(change.at("from"), c.from);
    EXPECT_EQ(change.at("to"), c.to);
    EXPECT_NE(change.at("cell").at("start"), change.at("cell").at("mains")) << "started wrong";
    const std::vector<flicker_eval::EvalCell> again = cellsOfRerun(change.at("rerun"));
    ASSERT_EQ(again.size(), 1u) << change.at("rerun");
    EXPECT_EQ(again[0].seed, change.at("seed").get<uint64_t>());
  }
  std::map<std::string, nlohmann::json> figures;
  for (const auto& f : json.at("figures")) figures[f.at("figure")] = f;
  const auto& right = figures["right over the observable cells"];
  EXPECT_EQ(right.at("change").get<double>(), std::string(c.to) == "right" ? 50.0 : -50.0);
  EXPECT_EQ(figures["never locked, still scenes"].at(std::string(c.to) == "right" ? "baseline"
                                                                                  : "candidate"),
            2);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ComparisonTest,
    ::testing::Values(
        // The candidate loses the cells; the baseline's clamped setting is
        // warned about as the baseline's.
        CompareCase{"candidate hides every lamp",
                    {"--set", "min_amplitude=10000", "--baseline-set", "hold_off=500"},
                    "right",
                    "wrong",
                    "flicker-sim: warning: baseline: hold_off (flickerFreq[3]) = 500 is read as"},
        // The same change as the baseline: the candidate wins them back.
        CompareCase{"baseline hides every lamp",
                    {"--baseline-set", "min_amplitude=10000"},
                    "wrong",
                    "right",
                    ""}));

}  // namespace
