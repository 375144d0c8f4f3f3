#include "cell_pool.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "outcome_codec.h"

namespace flicker_eval {

namespace {

using Clock = std::chrono::steady_clock;

// Exit status of a worker whose cell threw, or that was asked for a cell
// that does not exist.
constexpr int kWorkerBroke = 70;

struct Worker {
  int number = 0;  // 1, 2, ... in the order they were forked
  pid_t pid = -1;
  int fd = -1;    // the pool's end of the socket
  int cell = -1;  // the cell it runs; -1 when idle
  Clock::time_point since;
  bool timedOut = false;
  std::string received;  // output not yet a whole line
};

// Sends every byte; false when the other end is gone (never SIGPIPE).
bool sendAll(int fd, const std::string& text) {
  size_t sent = 0;
  while (sent < text.size()) {
    const ssize_t n = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return false;
    }
    sent += static_cast<size_t>(n);
  }
  return true;
}

// The next line from `fd` without its newline; false at the end.
bool readLine(int fd, std::string* buffer, std::string* line) {
  size_t newline;
  while ((newline = buffer->find('\n')) == std::string::npos) {
    char chunk[64];
    const ssize_t n = read(fd, chunk, sizeof(chunk));
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return false;
    }
    buffer->append(chunk, static_cast<size_t>(n));
  }
  *line = buffer->substr(0, newline);
  buffer->erase(0, newline + 1);
  return true;
}

// A worker's life: its set-up, then cells by index until the pool closes the
// socket. Never returns into the caller's code.
[[noreturn]] void workerMain(int fd, const std::vector<EvalCell>& cells, const CellRunner& run,
                             const std::function<void()>& setUp) {
  int status = 0;
  try {
    if (setUp) {
      setUp();
    }
    std::string buffer;
    std::string line;
    while (status == 0 && readLine(fd, &buffer, &line)) {
      char* end = nullptr;
      const unsigned long index = strtoul(line.c_str(), &end, 10);
      if (end == line.c_str() || *end != '\0' || index >= cells.size()) {
        status = kWorkerBroke;
      } else if (!sendAll(fd, encodeOutcome(run(cells[index])) + "\n")) {
        break;  // the pool is gone
      }
    }
  } catch (...) {
    status = kWorkerBroke;
  }
  _exit(status);
}

std::string howItEnded(int status) {
  if (WIFSIGNALED(status)) {
    const int sig = WTERMSIG(status);
    return "was killed by signal " + std::to_string(sig) + " (" + strsignal(sig) + ")";
  }
  if (WIFEXITED(status)) {
    return "exited with status " + std::to_string(WEXITSTATUS(status));
  }
  return "ended";
}

// One call of CellPool::run.
class PoolRun {
 public:
  PoolRun(const std::vector<EvalCell>& cells, const CellRunner& run, const PoolOptions& options)
      : cells_(cells), run_(run), options_(options), finished_(cells.size(), false) {}

  PoolReport go() {
    report_.outcomes.resize(cells_.size());
    for (size_t i = 0; i < cells_.size(); ++i) {
      report_.outcomes[i].cell = cells_[i];
    }
    const int jobs = std::min(std::max(options_.jobs, 1), static_cast<int>(cells_.size()));
    for (int k = 0; k < jobs; ++k) {
      startWorker();
    }
    while (!workers_.empty()) {
      waitForWorkers();
    }
    for (size_t i = 0; i < cells_.size(); ++i) {
      if (!finished_[i]) {
        fail(static_cast<int>(i), "not run: " + std::to_string(failures_) +
                                      " workers failed and no new one was started");
      }
    }
    return std::move(report_);
  }

 private:
  void startWorker() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
      noteFailure(std::string("cannot start a worker: ") + strerror(errno));
      return;
    }
    const pid_t pid = fork();
    if (pid == 0) {
      close(ends[0]);
      for (const Worker& w : workers_) {
        close(w.fd);  // or a worker would hold its siblings' sockets open
      }
      workerMain(ends[1], cells_, run_, options_.setUp);
    }
    close(ends[1]);
    if (pid < 0) {
      close(ends[0]);
      noteFailure(std::string("cannot start a worker: ") + strerror(errno));
      return;
    }
    Worker w;
    w.number = ++forked_;
    w.pid = pid;
    w.fd = ends[0];
    workers_.push_back(w);
    give(&workers_.back());
  }

  // The next cell, or the end of the work (the worker then exits).
  void give(Worker* w) {
    if (next_ >= cells_.size()) {
      w->cell = -1;
      shutdown(w->fd, SHUT_WR);
      return;
    }
    w->cell = static_cast<int>(next_++);
    w->since = Clock::now();
    // When the worker is gone, its socket reads as ended and the cell is
    // reported as lost with it.
    (void)sendAll(w->fd, std::to_string(w->cell) + "\n");
  }

  void waitForWorkers() {
    std::vector<pollfd> fds;
    int timeoutMs = -1;
    const Clock::time_point now = Clock::now();
    for (const Worker& w : workers_) {
      fds.push_back({w.fd, POLLIN, 0});
      if (w.cell >= 0 && !w.timedOut) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            w.since + options_.cellTimeout - now);
        const int ms = static_cast<int>(std::max<int64_t>(0, left.count()));
        timeoutMs = timeoutMs < 0 ? ms : std::min(timeoutMs, ms);
      }
    }
    if (poll(fds.data(), fds.size(), timeoutMs) < 0 && errno != EINTR) {
      return;
    }
    std::vector<Worker> ended;
    for (size_t i = workers_.size(); i-- > 0;) {
      Worker& w = workers_[i];
      if (w.cell >= 0 && !w.timedOut && Clock::now() - w.since >= options_.cellTimeout) {
        w.timedOut = true;
        kill(w.pid, SIGKILL);  // its socket then reads as ended
      }
      if (fds[i].revents != 0 && !readFrom(&w)) {
        ended.push_back(w);
        workers_.erase(workers_.begin() + static_cast<std::ptrdiff_t>(i));
      }
    }
    for (const Worker& w : ended) {
      bury(w);
    }
  }

  // Takes what the worker sent; false when it has ended.
  bool readFrom(Worker* w) {
    char chunk[4096];
    const ssize_t n = read(w->fd, chunk, sizeof(chunk));
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
      return true;
    }
    if (n <= 0) {
      return false;
    }
    w->received.append(chunk, static_cast<size_t>(n));
    size_t newline;
    while ((newline = w->received.find('\n')) != std::string::npos) {
      const std::string line = w->received.substr(0, newline);
      w->received.erase(0, newline + 1);
      if (w->cell < 0) {
        kill(w->pid, SIGKILL);  // output nobody asked for: not a worker of ours
        return false;
      }
      CellOutcome o;
      std::string error;
      if (!decodeOutcome(line, cells_[static_cast<size_t>(w->cell)], &o, &error)) {
        o = CellOutcome();
        o.cell = cells_[static_cast<size_t>(w->cell)];
        o.error = "worker " + std::to_string(w->number) + " sent " + error;
      }
      finish(w->cell, o);
      give(w);
    }
    return true;
  }

  // Reaps an ended worker; the cell it was running is lost with it, and a
  // new worker takes over the remaining cells.
  void bury(const Worker& w) {
    close(w.fd);
    int status = 0;
    while (waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {
    }
    const bool clean = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (w.cell < 0 && clean) {
      return;
    }
    const std::string who =
        "worker " + std::to_string(w.number) + " (pid " + std::to_string(w.pid) + ") ";
    const std::string how =
        w.timedOut ? "did not finish a cell within " +
                         std::to_string(
                             std::chrono::duration_cast<std::chrono::seconds>(options_.cellTimeout)
                                 .count()) +
                         " s and was stopped"
                   : howItEnded(status);
    if (w.cell < 0) {
      noteFailure(who + how + " after its last cell");
      return;
    }
    const EvalCell& cell = cells_[static_cast<size_t>(w.cell)];
    fail(w.cell, who + how);
    noteFailure(who + how + " while running " + cell.label() + " seed " +
                std::to_string(cell.seed));
    if (next_ < cells_.size() && failures_ < kMaxWorkerFailures) {
      startWorker();
    }
  }

  void noteFailure(const std::string& line) {
    report_.workerFailures.push_back(line);
    ++failures_;
  }

  void fail(int index, const std::string& error) {
    CellOutcome o;
    o.cell = cells_[static_cast<size_t>(index)];
    o.error = error;
    finish(index, o);
  }

  void finish(int index, const CellOutcome& o) {
    report_.outcomes[static_cast<size_t>(index)] = o;
    finished_[static_cast<size_t>(index)] = true;
    ++done_;
    if (options_.progress) {
      options_.progress(done_, static_cast<int>(cells_.size()));
    }
  }

  const std::vector<EvalCell>& cells_;
  const CellRunner& run_;
  const PoolOptions& options_;
  std::vector<bool> finished_;
  std::vector<Worker> workers_;
  PoolReport report_;
  size_t next_ = 0;
  int done_ = 0;
  int forked_ = 0;
  int failures_ = 0;
};

}  // namespace

PoolReport CellPool::run(const std::vector<EvalCell>& cells, const CellRunner& run) {
  if (cells.empty()) {
    return {};
  }
  return PoolRun(cells, run, options_).go();
}

PoolReport evaluateCells(const std::vector<EvalCell>& cells, double seconds,
                         const PoolOptions& options) {
  if (options.jobs <= 1 && !options.setUp) {
    PoolReport report;
    report.outcomes = evaluateAll(cells, seconds, options.progress);
    return report;
  }
  return CellPool(options).run(cells,
                               [seconds](const EvalCell& cell) { return evaluate(cell, seconds); });
}

}  // namespace flicker_eval
