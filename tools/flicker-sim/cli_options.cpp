#include "cli_options.h"

#include <algorithm>

namespace flicker_cli {

bool CliOptions::parse(const std::vector<std::string>& args, const std::vector<OptionDef>& defs,
                       const std::vector<std::string>& extraValued, std::string* error) {
  options_.clear();
  positionals_.clear();
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
      positionals_.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    const size_t equals = arg.find('=');
    const std::string name =
        arg.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
    int takesValue = -1;  // -1: unknown
    for (const OptionDef& s : defs) {
      if (name == s.name) {
        takesValue = s.takesValue ? 1 : 0;
      }
    }
    if (takesValue < 0 &&
        std::find(extraValued.begin(), extraValued.end(), name) != extraValued.end()) {
      takesValue = 1;
    }
    if (takesValue < 0) {
      *error = "unknown option --" + name;
      return false;
    }
    std::string value;
    if (takesValue == 0) {
      if (equals != std::string::npos) {
        *error = "option --" + name + " takes no value";
        return false;
      }
    } else if (equals != std::string::npos) {
      value = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      value = args[++i];
    } else {
      *error = "option --" + name + " needs a value";
      return false;
    }
    options_.emplace_back(name, value);
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

}  // namespace flicker_cli
