#include "child_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>

namespace reliability {

namespace {

bool writeAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Reads until end of file or the deadline; false on timeout.
bool readUntilClosed(int fd, std::chrono::steady_clock::time_point deadline, std::string* out) {
  char buffer[4096];
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0)
      return false;
    struct pollfd pfd = {fd, POLLIN, 0};
    const int ready = poll(&pfd, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR)
      continue;
    if (ready <= 0)
      return ready == 0 ? false : true;
    const ssize_t n = read(fd, buffer, sizeof(buffer));
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      return true;
    out->append(buffer, static_cast<size_t>(n));
  }
}

std::string describeStatus(int status) {
  if (WIFSIGNALED(status))
    return std::string("child killed by signal ") + std::to_string(WTERMSIG(status)) + " (" +
           strsignal(WTERMSIG(status)) + ")";
  if (WIFEXITED(status))
    return "child exited with status " + std::to_string(WEXITSTATUS(status));
  return "child ended abnormally (" + std::to_string(status) + ")";
}

}  // namespace

ChildOutcome ChildProcess::run(const std::function<std::string()>& body, int timeoutMs) {
  ChildOutcome outcome;
  int fds[2];
  if (pipe(fds) != 0) {
    outcome.failure = std::string("pipe: ") + strerror(errno);
    return outcome;
  }
  fflush(nullptr);  // nothing buffered is written twice
  const pid_t pid = fork();
  if (pid < 0) {
    outcome.failure = std::string("fork: ") + strerror(errno);
    close(fds[0]);
    close(fds[1]);
    return outcome;
  }
  if (pid == 0) {
    close(fds[0]);
    const bool sent = writeAll(fds[1], body());
    close(fds[1]);
    _exit(sent ? 0 : 3);
  }
  close(fds[1]);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  const bool finished = readUntilClosed(fds[0], deadline, &outcome.report);
  close(fds[0]);
  if (!finished)
    kill(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!finished) {
    outcome.failure = "child still running after " + std::to_string(timeoutMs) + " ms (killed)";
  } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    outcome.failure = describeStatus(status);
  } else {
    outcome.completed = true;
  }
  return outcome;
}

}  // namespace reliability
