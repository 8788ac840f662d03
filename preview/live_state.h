// The generator's output left on the live system, against what a reload
// would leave now.
#pragma once

#include <string>
#include <vector>

#include "model.h"

namespace preview {

// The differences between this generator's output under `liveRun` (the
// target's own /run) and under `previewRun` (the sandbox's, after a run),
// and the enable operations of that run. Only what this generator makes is
// compared: masks to /dev/null in the early directory of units the platform
// lists, .wants/ links in the normal directory to the file the platform
// names for the unit, and drop-ins by their names.
std::vector<LiveDifference> CompareWithLive(const std::string& liveRun, const std::string& previewRun,
                                            const Listing& listing, const RunReport& run);

}  // namespace preview
