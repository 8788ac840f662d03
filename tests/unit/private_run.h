// The reason task keeps its shared drop-in at a fixed path under /run. The
// binary that tests it mounts a private /run for itself before any test runs,
// so that nothing written there outlives the binary or reaches the host, and
// watches every removal of a path under /run.
#pragma once

#include <string>
#include <vector>

namespace unit_test {

// Gives this process a /run of its own (an empty tmpfs in a private mount
// namespace). False when the system does not allow it.
bool EnterPrivateRun();

bool HasPrivateRun();

// A removal (unlink) of a path under /run by this process, with the platform
// calls this process had made before it. Without a private /run the removal
// is only recorded, never done.
struct RunRemoval {
    std::string path;
    std::vector<std::string> callsBefore;
};

std::vector<RunRemoval> RunRemovals();
void ClearRunRemovals();

}  // namespace unit_test
