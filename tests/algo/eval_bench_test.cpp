// The evaluation bench's command line refuses bad input with a reason. The
// closed-loop runs themselves are covered by the tools tests.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "eval_options.h"

namespace flicker_eval {
namespace {

ParseStatus parse(const std::vector<const char*>& args, EvalOptions* o, std::string* error) {
  std::vector<const char*> argv = {"flicker-eval"};
  argv.insert(argv.end(), args.begin(), args.end());
  return parseEvalOptions(static_cast<int>(argv.size()), argv.data(), o, error);
}

TEST(EvalOptions, RefusesBadInputWithAReason) {
  struct Row {
    std::vector<const char*> args;
    const char* reasonPart;  // what the one-line reason must name
  } rows[] = {
      {{"--bogus"}, "unknown option"},    {{"--seconds"}, "needs a value"},
      {{"--seconds", "0"}, "--seconds"},   // below the 0.2 s minimum
      {{"--quick", "--full"}, "one of"},   // two sizes
      {{"--by", "fps,colour"}, "colour"},  // unknown dimension in a list
      {{"--set", "35=1"}, "WORD 0..34"},   // word out of the record
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.reasonPart);
    EvalOptions o;
    std::string error;
    EXPECT_EQ(parse(row.args, &o, &error), ParseStatus::kError);
    EXPECT_NE(error.find(row.reasonPart), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace flicker_eval
