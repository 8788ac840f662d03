// What to put into LD_PRELOAD for a program of this build.
#pragma once

#include <string>

namespace sandbox {

// `libraries` (a colon-separated list) preceded by the sanitizer runtime when
// this build has one: that runtime refuses to run unless it is the first
// library of the process. Unchanged otherwise, and when it is first already.
std::string PreloadList(const std::string& libraries);

}  // namespace sandbox
