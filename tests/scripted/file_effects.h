// The real file-system effects of the scripted platform. Each returns false
// with errno set when a system call fails.
#pragma once

#include <map>
#include <string>

namespace scripted {

// The name of the link that LinkVelaReason makes in a drop-in directory.
extern const char* const REASON_LINK_NAME;

// mkdir -p with mode 0755; an existing directory is success.
bool MakeDirectories(const std::string& path);

// Writes "[section]" and one "Key=Value" line per setting to `path`,
// replacing a file of that name.
bool WriteSectionFile(const std::string& path, const std::string& section,
                      const std::map<std::string, std::string>& settings);

// Makes the symbolic link `linkPath` -> `target`; an existing link with the
// same target is success.
bool LinkOnce(const std::string& target, const std::string& linkPath);

// Creates an empty file (mode 0644) at `path` unless something is there.
bool TouchFile(const std::string& path);

}  // namespace scripted
