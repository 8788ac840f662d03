// Finding what to run: the target's root and its generator.
#pragma once

#include <string>

#include "options.h"
#include "sandbox.h"

namespace preview {

// Fills `target` from the options. Returns "" or a one-line reason why the
// target cannot be previewed.
std::string ResolveTarget(const Options& options, Target& target);

}  // namespace preview
