#include "program_run.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "child_wait.h"
#include "core_library.h"
#include "velacore/error_state.h"

extern char** environ;

namespace velacore {
namespace {

// Spawn attributes for a program that starts as if the service manager had
// started it: no blocked signals, default dispositions, and a process group of
// its own so that a timeout can kill whatever the program started as well.
bool PrepareSpawnAttributes(posix_spawnattr_t& attributes) {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    short flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    return posix_spawnattr_setflags(&attributes, flags) == 0 &&
           posix_spawnattr_setpgroup(&attributes, 0) == 0 &&
           posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
           posix_spawnattr_setsigdefault(&attributes, &all) == 0;
}

// Starts the program; false when it cannot be started (glibc reports a failed
// exec here too, so a missing program is caught at this point).
bool SpawnProgram(const char* const argv[], pid_t& pid) {
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) {
        return false;
    }
    bool spawned = PrepareSpawnAttributes(attributes) &&
                   posix_spawn(&pid, argv[0], nullptr, &attributes, const_cast<char* const*>(argv),
                               environ) == 0;
    (void)posix_spawnattr_destroy(&attributes);
    return spawned;
}

// Kills the program's process group, the program included, and reaps the
// program. The group still exists: its leader is not reaped yet.
ChildWait KillAndReap(pid_t pid, int& status) {
    if (kill(-pid, SIGKILL) < 0) {
        (void)kill(pid, SIGKILL);
    }
    return WaitForChild(pid, Clock::time_point::max(), status);
}

}  // namespace

int RunProgram(const char* const argv[], std::chrono::milliseconds timeout) {
    Clock::time_point deadline = Clock::now() + timeout;
    pid_t pid = 0;
    if (!SpawnProgram(argv, pid)) {
        VLIBC_ERR_SET(VLIBC_ERR_EXEC);
        return -1;
    }
    int status = 0;
    ChildWait outcome = WaitForChild(pid, deadline, status);
    if (outcome == ChildWait::TimedOut) {
        outcome = KillAndReap(pid, status);
    }
    if (outcome != ChildWait::Ended || !WIFEXITED(status)) {
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
    // The argument vector ends at the first null argument, so the arguments
    // after it are never passed.
    const char* const argv[] = {program, arg1, arg2, arg3, arg4, nullptr};
    return velacore::RunProgram(argv, velacore::PROGRAM_RUN_TIMEOUT);
}
