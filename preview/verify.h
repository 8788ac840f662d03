// systemd's own loader on the result, inside the sandbox.
#pragma once

#include <string>
#include <vector>

#include "model.h"
#include "sandbox.h"

namespace preview {

// Runs the target's `systemd-analyze verify --generators=yes` on `units`,
// which runs the generators again as a reload does, and reports what it
// masked, whether the generator succeeded, and its warnings.
VerifyReport VerifyWithLoader(const Sandbox& sandbox, const std::vector<std::string>& units, int timeoutSeconds);

}  // namespace preview
