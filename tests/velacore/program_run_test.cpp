// Running programs: exit statuses, exact arguments, failures and the timeout.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "child_wait.h"
#include "core_library.h"
#include "velacore/error_state.h"
#include "program_run.h"
#include "scratch_dir.h"

namespace {

using std::chrono::milliseconds;
using velacore::ChildWait;
using velacore::Clock;

constexpr milliseconds SHORT_TIMEOUT{300};
// Generous bound on how long a kill and reap may take after the timeout.
constexpr milliseconds KILL_GRACE{3000};

// A script that writes its argument count and arguments, one per line, to the
// file named by $PROBE_OUT (so the environment must reach it) and exits 7.
constexpr const char* PROBE_SCRIPT =
    "#!/bin/sh\n"
    "{ echo \"$#\"; for a in \"$@\"; do echo \"$a\"; done; } > \"$PROBE_OUT\"\n"
    "exit 7\n";
constexpr int PROBE_EXIT = 7;

class ProgramRun : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(scratch_.ok());
        probe_ = scratch_.Write("probe", PROBE_SCRIPT);
        ASSERT_EQ(chmod(probe_.c_str(), 0755), 0);
        ASSERT_EQ(setenv("PROBE_OUT", scratch_.Path("args").c_str(), 1), 0);
        VLIBCErrSet(0, "", 0);
    }
    void TearDown() override { unsetenv("PROBE_OUT"); }

    std::string RecordedArguments() const { return ReadWholeFile(scratch_.Path("args")); }

    ScratchDir scratch_;
    std::string probe_;
};

TEST_F(ProgramRun, RunsWithTheArgumentsBeforeTheFirstNullVerbatimAndReturnsTheExitStatus) {
    EXPECT_EQ(VLIBCExec("/bin/sh", "-c", "exit 0", nullptr, nullptr), 0);
    ASSERT_EQ(VLIBCExec(probe_.c_str(), "--all", "two words", "$HOME", "a;b|c"), PROBE_EXIT);
    EXPECT_EQ(RecordedArguments(), "4\n--all\ntwo words\n$HOME\na;b|c\n");
    ASSERT_EQ(VLIBCExec(probe_.c_str(), "one", nullptr, "after-null", "also"), PROBE_EXIT);
    EXPECT_EQ(RecordedArguments(), "1\none\n");
    ASSERT_EQ(VLIBCExec(probe_.c_str(), nullptr, "after-null", nullptr, nullptr), PROBE_EXIT);
    EXPECT_EQ(RecordedArguments(), "0\n");
    EXPECT_EQ(VLIBCErrGet(), 0) << "a successful run recorded a failure";
}

TEST_F(ProgramRun, AProgramThatCannotRunOrDiesOfASignalIsFailure) {
    const std::string missing = scratch_.Path("missing");
    const struct {
        const char* name;
        const char* program;
        const char* arg1;
        const char* arg2;
    } runs[] = {{"missing program", missing.c_str(), "--all", nullptr},
                {"null program", nullptr, "--all", nullptr},
                {"killed by a signal", "/bin/sh", "-c", "kill -TERM $$"}};
    for (const auto& run : runs) {
        VLIBCErrSet(0, "", 0);
        EXPECT_EQ(VLIBCExec(run.program, run.arg1, run.arg2, nullptr, nullptr), -1) << run.name;
        EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_EXEC) << run.name;
        EXPECT_STREQ(VLIBCErrorGetFile(), "program_run.cpp") << run.name;
    }
}

TEST_F(ProgramRun, StartsWithSignalsUnblockedEvenWhenTheCallerBlocksThem) {
    sigset_t term;
    sigset_t previous;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    ASSERT_EQ(sigprocmask(SIG_BLOCK, &term, &previous), 0);
    int result = VLIBCExec("/bin/sh", "-c", "kill -TERM $$; exit 0", nullptr, nullptr);
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    EXPECT_EQ(result, -1) << "the program inherited a blocked SIGTERM";
}

TEST_F(ProgramRun, TimeoutKillsAndReapsTheProgramAndWhatItStarted) {
    // Orphans come to this process, so the background sleep can be waited for.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    std::string pid_file = scratch_.Path("background.pid");
    std::string script = "sleep 30 & echo $! > " + pid_file + "; wait";
    const char* const argv[] = {"/bin/sh", "-c", script.c_str(), nullptr};
    Clock::time_point start = Clock::now();
    EXPECT_EQ(velacore::RunProgram(argv, SHORT_TIMEOUT), -1);
    Clock::duration took = Clock::now() - start;
    EXPECT_GE(took, SHORT_TIMEOUT);
    EXPECT_LT(took, SHORT_TIMEOUT + KILL_GRACE);
    EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_EXEC);

    pid_t background = static_cast<pid_t>(atoi(ReadWholeFile(pid_file).c_str()));
    ASSERT_GT(background, 0);
    int status = 0;
    ChildWait outcome = velacore::WaitForChild(background, Clock::now() + KILL_GRACE, status);
    if (outcome == ChildWait::TimedOut) {
        kill(background, SIGKILL);
        waitpid(background, nullptr, 0);
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    ASSERT_EQ(outcome, ChildWait::Ended) << "the program's own child outlived the timeout";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "the killed program was not reaped";
}

// Both ways of waiting, with and without a process file descriptor.
using WaitFunction = ChildWait (*)(pid_t, Clock::time_point, int&);

class ChildWaiting : public testing::TestWithParam<WaitFunction> {};

pid_t ForkChildThat(int exit_code, unsigned seconds_before) {
    pid_t pid = fork();
    if (pid == 0) {
        sleep(seconds_before);
        _exit(exit_code);
    }
    return pid;
}

TEST_P(ChildWaiting, ReapsAChildThatEndsBeforeTheDeadlineAndFailsForNoChild) {
    pid_t pid = ForkChildThat(3, 0);
    ASSERT_GT(pid, 0);
    int status = 0;
    ASSERT_EQ(GetParam()(pid, Clock::now() + milliseconds{5000}, status), ChildWait::Ended);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1) << "the child was not reaped";
    EXPECT_EQ(GetParam()(pid, Clock::now() + SHORT_TIMEOUT, status), ChildWait::Failed);
}

TEST_P(ChildWaiting, LeavesARunningChildAtTheDeadline) {
    pid_t pid = ForkChildThat(0, 30);
    ASSERT_GT(pid, 0);
    int status = 0;
    Clock::time_point start = Clock::now();
    ChildWait outcome = GetParam()(pid, start + SHORT_TIMEOUT, status);
    Clock::duration took = Clock::now() - start;
    bool still_running = waitpid(pid, nullptr, WNOHANG) == 0;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    EXPECT_EQ(outcome, ChildWait::TimedOut);
    EXPECT_TRUE(still_running);
    EXPECT_GE(took, SHORT_TIMEOUT);
    EXPECT_LT(took, SHORT_TIMEOUT + KILL_GRACE);
}

INSTANTIATE_TEST_SUITE_P(BothStrategies, ChildWaiting,
                         testing::Values(&velacore::WaitForChild,
                                         &velacore::WaitForChildBySleeping),
                         [](const testing::TestParamInfo<WaitFunction>& info) {
                             return std::string(info.index == 0 ? "ProcessDescriptor"
                                                                : "Sleeping");
                         });

}  // namespace
