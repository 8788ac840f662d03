#include "program_run.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "core_library.h"
#include "velacore/error_state.h"

extern char** environ;

namespace velacore {
namespace {

using Clock = std::chrono::steady_clock;

// Where the kernel has no process descriptors: how often to look at the child.
constexpr std::chrono::milliseconds CHECK_INTERVAL{5};

// Starts the program as the service manager would: no blocked signals,
// default dispositions, and a process group of its own, so that a timeout
// kills whatever it started as well. glibc reports a failed exec here too.
bool SpawnProgram(const char* const argv[], pid_t& pid) {
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) return false;
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    short flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    bool spawned = posix_spawnattr_setflags(&attributes, flags) == 0 &&
                   posix_spawnattr_setpgroup(&attributes, 0) == 0 &&
                   posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
                   posix_spawnattr_setsigdefault(&attributes, &all) == 0 &&
                   posix_spawn(&pid, argv[0], nullptr, &attributes, const_cast<char* const*>(argv),
                               environ) == 0;
    (void)posix_spawnattr_destroy(&attributes);
    return spawned;
}

// Milliseconds left until `deadline`, rounded up; 0 once it has passed.
int MillisecondsUntil(Clock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

// Sleeps until the child `pid` ends or `deadline` passes: in poll() on a
// process descriptor, else in short naps. True when it has ended (not reaped).
bool AwaitEnd(pid_t pid, Clock::time_point deadline) {
    int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    siginfo_t info;
    for (;;) {
        info.si_pid = 0;
        if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == pid) {
            break;
        }
        int nap = pidfd >= 0 ? INT_MAX : static_cast<int>(CHECK_INTERVAL.count());
        int wait = std::min(MillisecondsUntil(deadline), nap);
        if (wait == 0) break;
        pollfd ended = {pidfd, POLLIN, 0};
        (void)poll(&ended, pidfd >= 0 ? 1 : 0, wait);
    }
    if (pidfd >= 0) (void)close(pidfd);
    return info.si_pid == pid;
}

}  // namespace

int RunProgram(const char* const argv[], std::chrono::milliseconds timeout) {
    Clock::time_point deadline = Clock::now() + timeout;
    pid_t pid = 0;
    if (!SpawnProgram(argv, pid)) {
        VLIBC_ERR_SET(VLIBC_ERR_EXEC);
        return -1;
    }
    // Outlived its time: kill its process group (its leader, not yet reaped,
    // keeps the group alive), then reap it.
    if (!AwaitEnd(pid, deadline) && kill(-pid, SIGKILL) < 0) (void)kill(pid, SIGKILL);
    int status = 0;
    pid_t reaped;
    while ((reaped = waitpid(pid, &status, 0)) < 0 && errno == EINTR) {
    }
    if (reaped != pid || !WIFEXITED(status)) {
        VLIBC_ERR_SET(VLIBC_ERR_EXEC);
        return -1;
    }
    return WEXITSTATUS(status);
}

}  // namespace velacore

extern "C" int VLIBCExec(const char* program, const char* arg1, const char* arg2,
                         const char* arg3, const char* arg4) {
    if (program == nullptr) {
        VLIBC_ERR_SET(VLIBC_ERR_EXEC);
        return -1;
    }
    // The argument vector ends at the first null argument.
    const char* const argv[] = {program, arg1, arg2, arg3, arg4, nullptr};
    return velacore::RunProgram(argv, velacore::PROGRAM_RUN_TIMEOUT);
}
