// ChildProcess: runs a piece of a test in a forked copy of the test process
// and hands back what it reported, so that faults that last for the life of a
// process (the per-sensor instances are created once, so a failed allocation
// in their constructor can be provoked only once per process) can be injected
// again and again, and so that a crash or a hang inside the body becomes a
// test failure instead of ending the test binary.
//
// Threading: call from a test thread while no other thread of the process
// holds a lock that the child will need (the child inherits locks as they
// were, without their owners). The child exits with _exit: it runs no static
// destructors and no exit handlers.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <type_traits>

namespace reliability {

struct ChildOutcome {
  bool completed = false;  // exited normally with status 0 and delivered its report
  std::string report;      // bytes written by the body
  std::string failure;     // why not completed: signal, exit status, timeout
};

class ChildProcess {
 public:
  // Runs `body` in a child; its result is the report. A child that has not
  // finished after `timeoutMs` is killed.
  static ChildOutcome run(const std::function<std::string()>& body, int timeoutMs);

  // The same for a report that is a plain record.
  template <typename Report>
  static bool runRecord(const std::function<Report()>& body, int timeoutMs, Report* out,
                        std::string* failure) {
    static_assert(std::is_trivially_copyable<Report>::value, "the report crosses a pipe as bytes");
    const ChildOutcome outcome = run(
        [&body] {
          const Report report = body();
          return std::string(reinterpret_cast<const char*>(&report), sizeof(report));
        },
        timeoutMs);
    if (outcome.completed && outcome.report.size() != sizeof(Report)) {
      *failure = "short report (" + std::to_string(outcome.report.size()) + " bytes)";
      return false;
    }
    if (!outcome.completed) {
      *failure = outcome.failure;
      return false;
    }
    memcpy(out, outcome.report.data(), sizeof(Report));
    return true;
  }
};

}  // namespace reliability
