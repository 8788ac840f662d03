// The bubblewrap command line of a sandbox: a root built on a tmpfs from the
// host's directories, read-only, with the private paths bound from the host
// state directory, a private /dev, /proc and /dev/log.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace sandbox {

struct SandboxLayout {
    std::string hostRoot;                  // private path P is backed by hostRoot + P
    std::set<std::string> privatePaths;    // absolute, no trailing slash
    std::string logSocket;                 // host socket bound at /dev/log
    std::vector<std::string> readOnlyBinds;  // host paths shown at the same place
    std::vector<std::pair<std::string, std::string>> writableBinds;  // host path, path inside
    std::map<std::string, std::string> environment;  // the whole environment
};

// The bubblewrap program.
extern const char* const BWRAP_PROGRAM;

// The argument vector that runs `command` in the sandbox. Throws
// std::runtime_error when a private path lies below a host symbolic link.
std::vector<std::string> BwrapCommand(const SandboxLayout& layout, const std::vector<std::string>& command);

}  // namespace sandbox
