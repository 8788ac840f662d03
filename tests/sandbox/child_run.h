// Running one program to its end with a time limit, its output captured.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace sandbox {

struct ChildOutcome {
    bool timedOut = false;
    int exitStatus = -1;  // the exit status, or -1 when it ended by a signal
    int termSignal = 0;   // the signal that ended it, or 0
    std::string out;
    std::string err;
};

// Something else to watch while the child runs: `onReadable` is called when
// `fd` has data, and once more after the child has ended.
struct WatchedFd {
    int fd;
    std::function<void()> onReadable;
};

// Runs `argv` (argv[0] searched in PATH) with standard input from /dev/null
// and umask 022, and waits until it has ended and closed its output. Past
// `limit` it is killed with SIGKILL and `timedOut` is set.
ChildOutcome RunChild(const std::vector<std::string>& argv, std::chrono::milliseconds limit,
                      const WatchedFd& watched);

}  // namespace sandbox
