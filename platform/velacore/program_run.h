// Running a program to its end, or killing it when it outlives its time.
#pragma once

#include <chrono>

namespace velacore {

// How long a program run by VLIBCExec may take. The upgrade boot runs three
// programs; at this limit together they stay well inside the service manager's
// 90 seconds for a generator, so a hung program cannot hold up the boot.
constexpr std::chrono::seconds PROGRAM_RUN_TIMEOUT{20};

// Runs the program at the path argv[0] with the null-terminated argument
// vector `argv`, no shell, in the caller's environment, and waits for it. When
// it is still running after `timeout`, kills it together with anything it
// started in its process group, and reaps it. Returns its exit status, or -1
// with the error state set (VLIBC_ERR_EXEC) when it could not be started, was
// killed or died of a signal.
int RunProgram(const char* const argv[], std::chrono::milliseconds timeout);

}  // namespace velacore
