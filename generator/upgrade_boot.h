// The upgrade-boot migration: on the first boot after a system upgrade, carry
// the old per-service configuration over before any unit is listed. Each step
// runs at most once per boot, guarded by a flag file under /run.
#pragma once

#include <string>

// Where the migration looks and writes. The system's paths by default; tests
// point it into a temporary directory.
struct UpgradePaths {
    std::string bootMarker;       // UPGRADE_BOOT_MARKER
    std::string versionFile;      // OLD_PATCH_VERSION_FILE
    std::string runDir;           // "/run"
    std::string flagDir;          // UPGRADE_FLAG_DIR, with its trailing slash
    std::string overrideDir;      // SERVICE_OVERRIDE_DIR, with its trailing slash
    std::string confDir;          // SERVICE_CONF_DIR, with its trailing slash
};

// The system's own paths.
UpgradePaths SystemUpgradePaths();

// True when both upgrade markers exist (any file type, links followed).
bool IsUpgradeBoot(const UpgradePaths& paths = SystemUpgradePaths());

// Runs the four steps in order, each unless its flag says it ran this boot.
// Never fails: every failure is logged or contained where it happens.
void RunUpgradeBootMigration(const UpgradePaths& paths = SystemUpgradePaths());

// True when flag `name` exists (the step must not run). Otherwise creates it
// where possible and returns false (the step must run now).
bool CheckAndSetUpgradeFlag(const std::string& name, const UpgradePaths& paths = SystemUpgradePaths());

// Runs the configuration-update script for `conversion` once per boot.
void RunConfigUpdate(const std::string& conversion, const UpgradePaths& paths = SystemUpgradePaths());

// Turns the legacy "auto_start" settings into enable and disable calls, then
// removes the legacy configuration directories.
void MigrateAutoStart(const UpgradePaths& paths = SystemUpgradePaths());
