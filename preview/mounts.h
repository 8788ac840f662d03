// The mount steps of the sandbox, each returning "" or a one-line failure.
#pragma once

#include <string>
#include <vector>

namespace preview {

// The mount points at or below `root`, parents first, as the mount table of
// this namespace lists them.
std::vector<std::string> MountPointsBelow(const std::string& root);

// Stops mounts of this namespace from reaching any other: a must before the
// first mount.
std::string MakeMountsPrivate();

// `source` shown read-only at `target` (that one mount, none below it).
std::string BindReadOnly(const std::string& source, const std::string& target);

// An overlay of read-only `lower` with the writable `upper` at `target`;
// `scratch` is overlayfs's own work directory.
std::string MountOverlay(const std::string& lower, const std::string& upper, const std::string& scratch,
                         const std::string& target);

std::string MountTmpfs(const std::string& target, const std::string& mode);

std::string MountKernelFileSystem(const char* type, const std::string& target, bool readOnly);

// Creates `path` and its parents (mode 0755) as needed; "" or the failure.
std::string MakeDirectories(const std::string& path);

}  // namespace preview
