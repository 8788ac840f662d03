// Forking, waiting with a time limit, and reading a child's answer.
#include "process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "syslog_socket.h"

namespace preview {

namespace {

long NowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000L + now.tv_nsec / 1000000L;
}

Outcome OutcomeOf(int status) {
  Outcome outcome;
  outcome.started = true;
  if (WIFEXITED(status)) outcome.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) outcome.signal = WTERMSIG(status);
  return outcome;
}

// Waits for the child's end, or the time limit, whichever is first, reading
// log datagrams as they come: a syslog sender blocks once a few are queued.
bool WaitForEnd(int pidFd, int logFd, int timeoutMs, std::vector<std::string>& log) {
  long deadline = NowMs() + timeoutMs;
  for (;;) {
    pollfd fds[2] = {{pidFd, POLLIN, 0}, {logFd, POLLIN, 0}};
    long left = timeoutMs < 0 ? -1 : deadline - NowMs();
    if (timeoutMs >= 0 && left <= 0) return false;
    int ready = poll(fds, logFd < 0 ? 1 : 2, static_cast<int>(left));
    if (ready < 0 && errno != EINTR) return false;
    if (logFd >= 0 && (fds[1].revents & POLLIN)) ReadLogLines(logFd, log);
    if (fds[0].revents & POLLIN) return true;
  }
}

}  // namespace

pid_t StartChild(const std::function<int()>& body) {
  pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

Outcome WaitForChild(pid_t pid, int timeoutMs, int logFd, std::vector<std::string>& log) {
  int pidFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  bool ended = pidFd < 0 || WaitForEnd(pidFd, logFd, timeoutMs, log);
  if (pidFd >= 0) close(pidFd);
  if (!ended) EndOtherProcesses();
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (logFd >= 0) ReadLogLines(logFd, log);
  Outcome outcome = OutcomeOf(status);
  outcome.timedOut = !ended;
  return outcome;
}

bool CollectFromChild(const std::function<std::string()>& body, std::string& text) {
  int pipeFds[2];
  if (pipe2(pipeFds, O_CLOEXEC) < 0) return false;
  pid_t pid = StartChild([&] {
    close(pipeFds[0]);
    std::string answer = body();
    const char* data = answer.data();
    size_t left = answer.size();
    while (left > 0) {
      ssize_t written = write(pipeFds[1], data, left);
      if (written <= 0) return 1;
      data += written;
      left -= static_cast<size_t>(written);
    }
    return 0;
  });
  close(pipeFds[1]);
  char buffer[65536];
  ssize_t got;
  while ((got = read(pipeFds[0], buffer, sizeof buffer)) > 0 || (got < 0 && errno == EINTR)) {
    if (got > 0) text.append(buffer, static_cast<size_t>(got));
  }
  close(pipeFds[0]);
  if (pid < 0) return false;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void EndOtherProcesses() {
  kill(-1, SIGKILL);
  while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

}  // namespace preview
