// Where the platform keeps unit state, relative to the model's root directory.
#pragma once

#include <cstddef>

namespace velasystemd {

// Local configuration and runtime state: the only directories whose links
// enable or mask units, and the only ones this library writes to.
inline constexpr const char* PERSISTENT_UNIT_DIR = "/etc/systemd/system";
inline constexpr const char* RUNTIME_UNIT_DIR = "/run/systemd/system";

// The system unit directories in systemd's precedence, highest first. The
// generator output directories (/run/systemd/generator*) are deliberately
// absent: what generators write is never a unit's own definition.
inline constexpr const char* UNIT_DIRECTORIES[] = {
    PERSISTENT_UNIT_DIR,
    RUNTIME_UNIT_DIR,
    "/usr/local/lib/systemd/system",
    "/usr/lib/systemd/system",
    "/lib/systemd/system",
};

inline constexpr size_t UNIT_DIRECTORY_COUNT = sizeof UNIT_DIRECTORIES / sizeof UNIT_DIRECTORIES[0];

// A link to this path masks a unit.
inline constexpr const char* MASK_TARGET = "/dev/null";

// One empty file per unit whose enable status departs from its default.
inline constexpr const char* CHANGE_MARK_DIR = "/etc/velasystemd/changed";

// Which support keys this machine supports.
inline constexpr const char* SUPPORT_TABLE_PATH = "/usr/vela/etc/unit-support.conf";

}  // namespace velasystemd
