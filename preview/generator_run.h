// One run of the generator in the sandbox, as the service manager runs it.
#pragma once

#include <string>

#include "model.h"
#include "sandbox.h"

namespace preview {

// Runs the generator at `generatorPath` (inside the target) with the three
// directories, in its own session, killed with everything it started past
// `timeoutSeconds`. Fills the outcome, the log lines and what it printed.
void RunGenerator(const Sandbox& sandbox, const std::string& generatorPath, int timeoutSeconds, RunReport& run);

}  // namespace preview
