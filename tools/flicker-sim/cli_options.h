// CliOptions: the command-line parser of flicker-sim's subcommands, on top
// of CLI11.
//
// Options are `--name VALUE`, `--name=VALUE` or flags `--name`; anything not
// starting with `--` is a positional argument; `--` ends the options. Each
// subcommand declares its options in a table; an option that is not in the
// table, a missing value or a value given to a flag is an error with a
// one-line reason. Options keep their command-line order (later settings
// win), which the scenario keys rely on. The help texts are the commands'
// own (CLI11's generated help is off).
//
// Plain value object; not thread-safe.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace flicker_cli {

struct OptionDef {
  const char* name;  // without the leading dashes
  bool takesValue;
};

class CliOptions {
 public:
  // Parses `args` (without the program and subcommand names). `extra` are
  // names accepted in addition to `defs`, all taking a value (the scenario
  // keys). False with a one-line reason in `error`.
  bool parse(const std::vector<std::string>& args, const std::vector<OptionDef>& defs,
             const std::vector<std::string>& extraValued, std::string* error);

  bool has(const std::string& name) const;
  // The last value of `name`, or `fallback`.
  std::string value(const std::string& name, const std::string& fallback = "") const;
  // Every value of `name`, in command-line order.
  std::vector<std::string> values(const std::string& name) const;
  const std::vector<std::pair<std::string, std::string>>& ordered() const { return options_; }
  const std::vector<std::string>& positionals() const { return positionals_; }

 private:
  std::vector<std::pair<std::string, std::string>> options_;
  std::vector<std::string> positionals_;
};

}  // namespace flicker_cli
