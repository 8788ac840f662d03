// One preview, from inside its namespaces: build the sandbox, run, collect,
// report.
#pragma once

#include "options.h"
#include "sandbox.h"

namespace preview {

// Runs the preview in `work` and writes the report on stdout. Returns the
// preview's exit status.
int RunPreview(const Options& options, const Target& target, const std::string& work);

}  // namespace preview
