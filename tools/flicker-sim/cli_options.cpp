#include "cli_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>

namespace flicker_cli {

namespace {

// CLI11's name of the option that collects the positional arguments.
const char kPositionals[] = "arguments";

bool takesValue(const std::string& name, const std::vector<OptionDef>& defs,
                const std::vector<std::string>& extraValued) {
  for (const OptionDef& d : defs) {
    if (name == d.name) {
      return d.takesValue;
    }
  }
  return std::find(extraValued.begin(), extraValued.end(), name) != extraValued.end();
}

// CLI11 reports a flag given a value and a value option at the end of the
// line as the same kind of error; the arguments tell which one it was.
std::string mismatchReason(const std::vector<std::string>& args, const std::vector<OptionDef>& defs,
                           const std::vector<std::string>& extraValued,
                           const std::string& fallback) {
  for (const std::string& arg : args) {
    if (arg == "--") {
      break;
    }
    const size_t equals = arg.find('=');
    if (arg.compare(0, 2, "--") == 0 && equals != std::string::npos &&
        !takesValue(arg.substr(2, equals - 2), defs, extraValued)) {
      return "option " + arg.substr(0, equals) + " takes no value";
    }
  }
  if (!args.empty() && args.back().compare(0, 2, "--") == 0 &&
      takesValue(args.back().substr(2), defs, extraValued)) {
    return "option " + args.back() + " needs a value";
  }
  return fallback;
}

}  // namespace

bool CliOptions::parse(const std::vector<std::string>& args, const std::vector<OptionDef>& defs,
                       const std::vector<std::string>& extraValued, std::string* error) {
  options_.clear();
  positionals_.clear();
  CLI::App app;
  app.set_help_flag();     // --help is an ordinary flag of each command's table
  app.allow_extras(true);  // unknown options are reported below, in our words
  app.add_option(kPositionals, positionals_)->expected(0, CLI::detail::expected_max_vector_size);
  std::map<const CLI::Option*, std::string> names;
  auto add = [&](const std::string& name, bool valued) {
    CLI::Option* option = valued ? app.add_option("--" + name) : app.add_flag("--" + name);
    // Repeats are allowed: the scenario keys and --set are read in order.
    option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    if (valued) {
      option->allow_extra_args(false);
    } else {
      option->disable_flag_override();
    }
    names[option] = name;
  };
  for (const OptionDef& d : defs) {
    add(d.name, d.takesValue);
  }
  for (const std::string& name : extraValued) {
    add(name, true);
  }

  std::vector<std::string> reversed(args.rbegin(), args.rend());  // CLI11 takes them last first
  try {
    app.parse(reversed);
  } catch (const CLI::ArgumentMismatch& e) {
    *error = mismatchReason(args, defs, extraValued, e.what());
    return false;
  } catch (const CLI::ParseError& e) {
    *error = e.what();
    return false;
  }
  for (const std::string& extra : app.remaining()) {
    if (extra != "--") {
      *error = "unknown option " + extra.substr(0, extra.find('='));
      return false;
    }
  }
  // parse_order() lists an option once per occurrence; its results are in
  // the same order.
  std::map<const CLI::Option*, size_t> seen;
  for (const CLI::Option* option : app.parse_order()) {
    const auto name = names.find(option);
    if (name == names.end()) {
      continue;  // the positionals
    }
    const size_t index = seen[option]++;
    const bool valued = takesValue(name->second, defs, extraValued);
    options_.emplace_back(name->second, valued ? option->results().at(index) : "");
  }
  return true;
}

bool CliOptions::has(const std::string& name) const {
  for (const auto& o : options_) {
    if (o.first == name) {
      return true;
    }
  }
  return false;
}

std::string CliOptions::value(const std::string& name, const std::string& fallback) const {
  std::string found = fallback;
  for (const auto& o : options_) {
    if (o.first == name) {
      found = o.second;
    }
  }
  return found;
}

std::vector<std::string> CliOptions::values(const std::string& name) const {
  std::vector<std::string> found;
  for (const auto& o : options_) {
    if (o.first == name) {
      found.push_back(o.second);
    }
  }
  return found;
}

}  // namespace flicker_cli
