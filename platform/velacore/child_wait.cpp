#include "child_wait.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <thread>

namespace velacore {
namespace {

// Intervals of the fallback: short at first, since most programs end quickly,
// then capped so that a long wait costs a few wake-ups a second at most.
constexpr std::chrono::milliseconds FIRST_CHECK_INTERVAL{1};
constexpr std::chrono::milliseconds LONGEST_CHECK_INTERVAL{50};

// A descriptor that becomes readable when the child ends, or -1.
int OpenProcessDescriptor(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    errno = ENOSYS;
    return -1;
#endif
}

// Milliseconds left until `deadline` for poll(), rounded up so that poll never
// wakes before it; 0 once it has passed.
int MillisecondsUntil(Clock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

// Reaps a child known to have ended.
ChildWait ReapEndedChild(pid_t pid, int& status) {
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return ChildWait::Failed;
        }
    }
    return ChildWait::Ended;
}

ChildWait WaitOnProcessDescriptor(int pidfd, pid_t pid, Clock::time_point deadline, int& status) {
    pollfd ended = {pidfd, POLLIN, 0};
    for (;;) {
        int ready = poll(&ended, 1, MillisecondsUntil(deadline));
        if (ready > 0) {
            return ReapEndedChild(pid, status);
        }
        if (ready == 0) {
            return ChildWait::TimedOut;
        }
        if (errno != EINTR) {
            return ChildWait::Failed;
        }
    }
}

}  // namespace

ChildWait WaitForChild(pid_t pid, Clock::time_point deadline, int& status) {
    int pidfd = OpenProcessDescriptor(pid);
    if (pidfd < 0) {
        return WaitForChildBySleeping(pid, deadline, status);
    }
    ChildWait outcome = WaitOnProcessDescriptor(pidfd, pid, deadline, status);
    int saved_errno = errno;
    (void)close(pidfd);
    errno = saved_errno;
    return outcome;
}

ChildWait WaitForChildBySleeping(pid_t pid, Clock::time_point deadline, int& status) {
    std::chrono::milliseconds interval = FIRST_CHECK_INTERVAL;
    for (;;) {
        pid_t reaped = waitpid(pid, &status, WNOHANG);
        if (reaped == pid) {
            return ChildWait::Ended;
        }
        if (reaped < 0 && errno != EINTR) {
            return ChildWait::Failed;
        }
        Clock::time_point now = Clock::now();
        if (now >= deadline) {
            return ChildWait::TimedOut;
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(interval, deadline - now));
        interval = std::min(interval * 2, LONGEST_CHECK_INTERVAL);
    }
}

}  // namespace velacore
