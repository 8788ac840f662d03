// Forking through the core library: an ordinary child of the caller.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core_library.h"

namespace {

// The option word the generator passes; it must not change the fork.
constexpr int GENERATOR_FORK_OPTIONS = 0xBB;
constexpr int CHILD_EXIT_CODE = 42;
// An unprivileged user for whom the process limit below is enforced.
constexpr uid_t NOBODY_UID = 65534;

TEST(ProcessFork, ChildSeesZeroAndIsReapedByWaitForAnyChild) {
    int pid = VLIBCProcForkEx(GENERATOR_FORK_OPTIONS);
    if (pid == 0) {
        _exit(CHILD_EXIT_CODE);
    }
    ASSERT_GT(pid, 0);
    int status = 0;
    EXPECT_EQ(waitpid(-1, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), CHILD_EXIT_CODE);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a second child was left behind";
}

// Run in a child of its own: it drops privileges and forbids new processes.
[[noreturn]] void ForkUnderZeroProcessLimit() {
    if (geteuid() == 0 && setuid(NOBODY_UID) != 0) {
        _exit(2);
    }
    rlimit none = {0, 0};
    if (setrlimit(RLIMIT_NPROC, &none) != 0) {
        _exit(3);
    }
    int pid = VLIBCProcForkEx(GENERATOR_FORK_OPTIONS);
    if (pid == 0) {
        _exit(4);
    }
    _exit(pid < 0 && VLIBCErrGet() == 0x710 ? 0 : 1);
}

TEST(ProcessFork, FailureIsNegativeWithForkErrorCode) {
    pid_t tester = fork();
    if (tester == 0) {
        ForkUnderZeroProcessLimit();
    }
    ASSERT_GT(tester, 0);
    int status = 0;
    ASSERT_EQ(waitpid(tester, &status, 0), tester);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0)
        << "1: fork did not fail with 0x710, 2/3: could not set up the limit, 4: fork succeeded";
}

}  // namespace
