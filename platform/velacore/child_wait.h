// Waiting for one child process until a deadline, without spinning.
#pragma once

#include <sys/types.h>

#include <chrono>

namespace velacore {

using Clock = std::chrono::steady_clock;

enum class ChildWait {
    Ended,     // the child ended and is reaped; the status is filled in
    TimedOut,  // the deadline passed; the child still runs and is not reaped
    Failed,    // the child cannot be waited for (errno tells why)
};

// Waits until child `pid` ends or `deadline` passes. Sleeps in poll() on a
// process file descriptor where the kernel has them, else falls back to
// WaitForChildBySleeping.
ChildWait WaitForChild(pid_t pid, Clock::time_point deadline, int& status);

// The fallback: checks the child at growing intervals and sleeps in between.
// Unlike waiting for SIGCHLD it leaves the caller's signal handling alone.
ChildWait WaitForChildBySleeping(pid_t pid, Clock::time_point deadline, int& status);

}  // namespace velacore
