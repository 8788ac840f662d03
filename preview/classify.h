// Sorting a run's changes into the kinds of output a person asks about.
#pragma once

#include <string>
#include <vector>

#include "model.h"

namespace preview {

// Files the changes into `run`'s kinds: masks, wants links, drop-ins, enable
// links, change marks, run-once flags (and the programs they stand for),
// legacy configuration removed, and everything else.
void ClassifyChanges(const std::vector<Change>& changes, RunReport& run);

// Keeps only what concerns `unit`: its mask, its links and those into it,
// its drop-ins, its enable links and change mark, log lines naming it.
void NarrowToUnit(const std::string& unit, RunReport& run);

// The units the run's output names, for the loader to load.
std::vector<std::string> UnitsNamedBy(const RunReport& run);

}  // namespace preview
