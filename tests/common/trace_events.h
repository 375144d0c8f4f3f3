// Reads a trace-event file (a JSON array, as the host platform writes it) and
// checks what a trace viewer relies on: well-formed JSON, one process, every
// "B" closed by an "E" on the same thread, time stamps that never go back,
// names for the process and every thread that has sections. The sections
// come back as slices for a test to look at.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace trace_test {

struct Slice {
  std::string name;
  long tid = 0;
  double beginUs = 0;
  double endUs = 0;
  int depth = 0;  // sections open around it on its thread
};

struct TraceFile {
  std::string error;  // empty when every check passed
  std::string process;
  std::map<long, std::string> threads;  // the last name given to each thread
  std::vector<Slice> slices;            // in the order they ended
};

inline TraceFile readTraceEvents(const std::string& text) {
  TraceFile out;
  const nlohmann::json events = nlohmann::json::parse(text, nullptr, false);
  if (events.is_discarded() || !events.is_array()) {
    out.error = "not a JSON array";
    return out;
  }
  std::map<long, std::vector<Slice>> open;
  long pid = -1;
  double lastUs = -1;
  for (const nlohmann::json& e : events) {
    const std::string where = "event " + e.dump() + ": ";
    if (!e.is_object() || !e.contains("ph") || !e.contains("pid") || !e.contains("tid")) {
      out.error = where + "not an event";
      return out;
    }
    const long eventPid = e["pid"].get<long>();
    const long tid = e["tid"].get<long>();
    if (pid >= 0 && eventPid != pid) {
      out.error = where + "another process";
      return out;
    }
    pid = eventPid;
    const std::string ph = e["ph"].get<std::string>();
    if (ph == "M") {
      const std::string name = e.at("args").at("name").get<std::string>();
      (e["name"] == "process_name" ? out.process : out.threads[tid]) = name;
      continue;
    }
    const double ts = e.at("ts").get<double>();
    if (ts < lastUs) {
      out.error = where + "time stamp goes back";
      return out;
    }
    lastUs = ts;
    if (out.threads.count(tid) == 0) {
      out.error = where + "thread without a name";
      return out;
    }
    std::vector<Slice>& stack = open[tid];
    if (ph == "B") {
      stack.push_back(
          Slice{e.at("name").get<std::string>(), tid, ts, 0, static_cast<int>(stack.size())});
    } else if (ph == "E") {
      if (stack.empty()) {
        out.error = where + "an end without a begin on its thread";
        return out;
      }
      stack.back().endUs = ts;
      out.slices.push_back(stack.back());
      stack.pop_back();
    } else {
      out.error = where + "unexpected phase";
      return out;
    }
  }
  for (const auto& [tid, stack] : open) {
    if (!stack.empty()) {
      out.error =
          "section '" + stack.back().name + "' of thread " + std::to_string(tid) + " never ends";
      return out;
    }
  }
  if (out.process.empty()) {
    out.error = "no process name";
  }
  return out;
}

}  // namespace trace_test
