// vela-generator-preview: runs the generator in a throwaway layer of the
// system or an image and reports what it did. This process stays in the
// host's namespaces, owns the temporary directory and removes it; the work is
// done by the first process of a new pid namespace in a new mount namespace,
// so that when it ends, whatever it started and mounted ends too.
#include <errno.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <iostream>

#include "constants.h"
#include "options.h"
#include "preview.h"
#include "process.h"
#include "target.h"

using namespace preview;

namespace {

constexpr int STOP_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

int Fail(const std::string& message) {
  std::cerr << PROGRAM_NAME << ": " << message << "\n";
  return EXIT_CANNOT_RUN;
}

sigset_t StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (int signal : STOP_SIGNALS) sigaddset(&signals, signal);
  return signals;
}

// Waits for the child. A stop signal ends it: the preview's child with
// `stopSignal`, on which it ends the namespaces and waits for them; their first
// process with SIGKILL, which ends every process in them.
int WaitOrStop(pid_t child, int stopSignal) {
  sigset_t signals = StopSignals();
  int signalFd = signalfd(-1, &signals, SFD_CLOEXEC);
  int pidFd = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
  bool stopped = false;
  while (signalFd >= 0 && pidFd >= 0 && !stopped) {
    pollfd fds[2] = {{pidFd, POLLIN, 0}, {signalFd, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
    if (fds[0].revents & POLLIN) break;
    stopped = (fds[1].revents & POLLIN) != 0;
  }
  if (stopped) kill(child, stopSignal);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (signalFd >= 0) close(signalFd);
  if (pidFd >= 0) close(pidFd);
  if (stopped) return EXIT_INTERRUPTED;
  return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_CANNOT_RUN;
}

// The namespaces' first process: in a mount namespace of its own, tied to
// the life of the process that started it.
int RunFirstInNamespaces(const Options& options, const Target& target, const std::string& work) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The generator gets the dispositions the service manager gives it, not
  // those of the shell that started the preview.
  for (int signal : STOP_SIGNALS) std::signal(signal, SIG_DFL);
  sigset_t signals = StopSignals();
  sigprocmask(SIG_UNBLOCK, &signals, nullptr);
  // A network namespace of its own too: no abstract socket of the host's
  // daemons is reachable from the sandbox.
  if (unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS) < 0)
    return Fail(std::string("cannot make the namespaces: ") + std::strerror(errno));
  return RunPreview(options, target, work);
}

// The child of the preview: starts the first process of a new pid namespace
// and waits for it, and for the end of all its processes when stopped. Only
// the namespace's processes are in that namespace, so that once its first
// process is gone no new one can enter it.
int RunInNamespaces(const Options& options, const Target& target, const std::string& work) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (unshare(CLONE_NEWPID) < 0)
    return Fail(std::string("cannot make namespaces (") + std::strerror(errno) + "): run it as root or with CAP_SYS_ADMIN");
  pid_t first = StartChild([&] { return RunFirstInNamespaces(options, target, work); });
  if (first < 0) return Fail(std::string("cannot fork: ") + std::strerror(errno));
  return WaitOrStop(first, SIGKILL);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string error;
  if (!ParseOptions(argc, argv, options, error)) return Fail(error);
  if (options.help) {
    std::cout << UsageText();
    return 0;
  }
  Target target;
  error = ResolveTarget(options, target);
  if (!error.empty()) return Fail(error);
  sigset_t signals = StopSignals();
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  std::string work = TEMP_TEMPLATE;
  if (mkdtemp(&work[0]) == nullptr) return Fail(std::string("cannot make a temporary directory: ") + std::strerror(errno));
  std::cout.flush();
  pid_t child = StartChild([&] { return RunInNamespaces(options, target, work); });
  int status = child < 0 ? Fail(std::string("cannot fork: ") + std::strerror(errno)) : WaitOrStop(child, SIGTERM);
  // Its tmpfs lived in the child's mount namespace: here it is empty.
  if (rmdir(work.c_str()) < 0) Fail(std::string("cannot remove ") + work + ": " + std::strerror(errno));
  if (status == EXIT_INTERRUPTED) std::cerr << PROGRAM_NAME << ": interrupted; nothing is left behind\n";
  return status;
}
