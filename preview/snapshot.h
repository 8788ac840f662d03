// What the throwaway layers hold, and what changed between two looks.
#pragma once

#include <string>
#include <vector>

#include "model.h"
#include "sandbox.h"

namespace preview {

// Reads one path: kind, and content or link target.
Entry ReadEntry(const std::string& path);

// Every entry of every layer's upper directory, by its path in the target.
// The upper layers hold exactly what was written anywhere since the
// sandbox was made.
Snapshot TakeSnapshot(const std::vector<Layer>& layers);

// The paths whose entries differ between `before` and `after`, each with
// what lay there before (from the lower layer when the upper had nothing),
// sorted by path.
std::vector<Change> CompareSnapshots(const Snapshot& before, const Snapshot& after, const std::vector<Layer>& layers);

}  // namespace preview
