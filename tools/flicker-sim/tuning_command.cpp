// flicker-sim tuning: shows a tuning record field by field, edits fields by
// name and writes the result as an NVRAM image.
#include <cstdio>

#include "cli_common.h"
#include "cli_json.h"
#include "tuning_fields.h"

namespace flicker_cli {

namespace {

const char kTuningHelp[] =
    "usage: flicker-sim tuning [options]\n"
    "\n"
    "Shows a tuning record field by field, edits fields by name and writes the\n"
    "result as an NVRAM image (70 x 2 records of 168 bytes) that --tuning FILE and\n"
    "FLICKER_NVRAM_IMAGE accept. Settings apply to every record of the image.\n"
    "For each word the open algorithm reads, the listing gives its knob name, the\n"
    "value it reads (zero selects the default) and its limits.\n"
    "\n"
    "options:\n"
    "  --tuning T        the tuning to start from: open (default: the open\n"
    "                    algorithm's recommended record), host (the host\n"
    "                    platform's table) or an NVRAM image file\n"
    "  --set NAME=VALUE  set a field by its record name (flickerFreq[3]) or its\n"
    "                    knob name (hold_off); repeatable, later settings win. A\n"
    "                    value outside the algorithm's limits is written as given\n"
    "                    and warned about\n"
    "  --write FILE      write the image to FILE\n"
    "  --json            the record as JSON\n"
    "  --help            this text\n";

const std::vector<OptionDef> kTuningOptions = {
    {"help", false}, {"json", false}, {"tuning", true}, {"set", true}, {"write", true},
};

std::string limitsText(const FLICKER_CUST_PARA& record, const flicker_loop::TuningField& f) {
  int64_t lo = 0;
  int64_t hi = 0;
  if (!flicker_loop::TuningFields::limits(record, f, &lo, &hi)) {
    return "";
  }
  return std::to_string(lo) + ".." + std::to_string(hi);
}

void printText(const std::string& choice, const flicker_loop::TuningTable& table,
               std::ostream& out) {
  const FLICKER_CUST_PARA& record = table.first();
  out << "tuning " << choice << ": "
      << (table.uniform() ? "every record alike" : "records differ; row 0, column 0 shown") << "\n";
  char line[200];
  snprintf(line, sizeof(line), "%4s %-28s %11s  %-18s %8s %-14s %s\n", "word", "field", "value",
           "knob", "reads_as", "limits", "meaning");
  out << line;
  for (const flicker_loop::TuningField& f : flicker_loop::TuningFields::all()) {
    const std::string word = f.word >= 0 ? std::to_string(f.word) : "-";
    const std::string readsAs =
        f.knob.empty() ? "" : std::to_string(flicker_loop::TuningFields::effective(record, f));
    snprintf(line, sizeof(line), "%4s %-28s %11lld  %-18s %8s %-14s %s", word.c_str(),
             f.name.c_str(), static_cast<long long>(flicker_loop::TuningFields::get(record, f)),
             f.knob.empty() ? "-" : f.knob.c_str(), readsAs.c_str(), limitsText(record, f).c_str(),
             f.meaning.c_str());
    std::string text = line;
    text.erase(text.find_last_not_of(' ') + 1);
    out << text << "\n";
  }
}

void printJson(const std::string& choice, const flicker_loop::TuningTable& table,
               const std::string& image, std::ostream& out) {
  const FLICKER_CUST_PARA& record = table.first();
  Json fields = Json::array();
  for (const flicker_loop::TuningField& f : flicker_loop::TuningFields::all()) {
    Json field = {{"field", f.name},
                  {"word", f.word >= 0 ? Json(f.word) : Json()},
                  {"value", flicker_loop::TuningFields::get(record, f)}};
    int64_t lo = 0;
    int64_t hi = 0;
    if (flicker_loop::TuningFields::limits(record, f, &lo, &hi)) {
      field["knob"] = f.knob;
      field["reads_as"] = flicker_loop::TuningFields::effective(record, f);
      field["limits"] = {lo, hi};
      field["meaning"] = f.meaning;
    }
    fields.push_back(field);
  }
  out << Json{{"tuning", choice},
              {"uniform", table.uniform()},
              {"image", image.empty() ? Json() : Json(image)},
              {"fields", fields}}
             .dump(2)
      << "\n";
}

}  // namespace

int tuningCommand(const std::vector<std::string>& args, CliIo io) {
  CliOptions options;
  std::string error;
  if (!options.parse(args, kTuningOptions, {}, &error)) {
    return failWith(io, kExitUsage, error + " (see flicker-sim tuning --help)");
  }
  if (options.has("help")) {
    io.out << kTuningHelp;
    return kExitOk;
  }
  if (!options.positionals().empty()) {
    return failWith(io, kExitUsage,
                    "tuning takes no arguments, got '" + options.positionals()[0] + "'");
  }
  flicker_loop::TuningTable table;
  if (const int status = readTuning(options, &table, io, &error)) {
    return failWith(io, status, error);
  }
  const std::string image = options.value("write");
  if (options.has("write") && !flicker_loop::TuningChoice::writeImage(table, image, &error)) {
    return failWith(io, kExitFailed, error);
  }
  const std::string choice = options.value("tuning", "open");
  if (options.has("json")) {
    printJson(choice, table, image, io.out);
    return kExitOk;
  }
  printText(choice, table, io.out);
  if (options.has("write")) {
    io.out << "image written to " << image << " (use it with --tuning " << image
           << " or FLICKER_NVRAM_IMAGE)\n";
  }
  return kExitOk;
}

}  // namespace flicker_cli
