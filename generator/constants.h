// Process-wide constants: paths, names and keys of the platform, set before
// main runs and never changed. Children inherit them through the fork.
#pragma once

#include <map>
#include <set>
#include <string>

// Legacy service name -> the unit names that took its place.
extern const std::map<std::string, std::set<std::string>> LegacyServiceMap;

extern const std::string SYSTEMCTL_BIN;
extern const std::string CHECK_SERVICE_REASON;
extern const std::string REASON_CONF_DIR;
extern const std::string REASON_CONF_NAME;
extern const std::string PACK_CONF_NAME;
extern const std::string SECTION_UNIT;
extern const std::string SECTION_SERVICE;
extern const std::string KEY_EXEC_START_PRE;
extern const std::string KEY_PART_OF;
extern const std::string KEY_RELOAD_PROPAGATED_FROM;
extern const std::string SERVICE_OVERRIDE_DIR;
extern const std::string SERVICE_CONF_DIR;
extern const std::string KEY_AUTO_START;
extern const std::string PKGCTL_PREFIX;

// Upgrade boot.
extern const std::string UPGRADE_BOOT_MARKER;
extern const std::string OLD_PATCH_VERSION_FILE;
extern const std::string UPGRADE_FLAG_DIR;
extern const std::string SERVICE_MIGRATE_BIN;
extern const std::string CONFIG_UPDATE_SCRIPT;

// The option word of every fork the generator asks the core library for.
constexpr int FORK_OPTIONS = 0xBB;

// The error code of a metadata query about a unit without platform policy:
// expected, and never worth a log line.
constexpr int ERR_NO_PLATFORM_POLICY = 0x700;

// Enable status values the generator acts on.
constexpr int ENABLE_STATUS_UNKNOWN = -1;
constexpr int ENABLE_STATUS_DISABLED = 0;
constexpr int ENABLE_STATUS_ENABLED = 1;
constexpr int ENABLE_STATUS_STATIC = 2;

// Link target of a mask.
constexpr const char* DEV_NULL = "/dev/null";
