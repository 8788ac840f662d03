// The live state a reload finds in /run, copied into the sandbox's own /run.
#pragma once

#include <string>

namespace preview {

// Copies from the live /run at `liveRun` into `run` the trees the generator
// and the unit library read and write there. Directories, files and links
// only: no socket of the live system is reachable from the sandbox. Returns
// "" or the failure.
std::string CopyLiveState(const std::string& liveRun, const std::string& run);

}  // namespace preview
