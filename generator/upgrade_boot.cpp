// The upgrade-boot migration. Every file-system query uses the non-throwing
// forms: a path that cannot be looked at counts as absent, and nothing here
// may end the run.
#include "upgrade_boot.h"

#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <map>
#include <set>

#include "constants.h"
#include "core_library.h"
#include "json_file.h"
#include "log.h"
#include "unit_library.h"

namespace fs = boost::filesystem;

namespace {

const std::string RUN_DIR = "/run";

const std::string FLAG_SERVICE_MIGRATE = "velaservicemigrate";
const std::string FLAG_AUTO_START = "migrate-runkey-to-enable";
const std::string FLAG_CONFIG_UPDATE_PREFIX = "configupdate-";

const std::string CONVERSION_UPSTART_TO_SYSTEMD = "init_conf_migrate_upstart_to_systemd";
const std::string CONVERSION_SYSTEMD_TO_SYSTEMD = "init_conf_migrate_systemd_to_systemd";

const char* const SERVICE_MIGRATE_ALL = "--all";

const std::string AUTO_START_YES = "yes";
const std::string AUTO_START_NO = "no";

constexpr mode_t FLAG_DIR_MODE = 0755;

// Normalized unit name -> enable (true) or disable (false).
using AutoStartDecisions = std::map<std::string, bool>;

// Any file type counts, links followed; a dangling link does not exist.
bool PathExists(const std::string& path) {
    boost::system::error_code ignored;
    return fs::exists(fs::status(path, ignored));
}

bool IsDirectory(const std::string& path) {
    boost::system::error_code ignored;
    return fs::is_directory(fs::status(path, ignored));
}

// The legacy service name of an override file: its name less the last
// extension (".x" has the empty stem, "x" is its own).
std::string LegacyServiceName(const std::string& fileName) {
    return fileName.substr(0, fileName.rfind('.'));
}

std::set<std::string> UnitsOfLegacyService(const std::string& service) {
    const auto found = LegacyServiceMap.find(service);
    return found != LegacyServiceMap.end() ? found->second : std::set<std::string>{service};
}

// A legacy setting applies only to a unit whose status nobody has changed
// and that is plainly enabled or disabled.
bool IsMigratable(const std::string& unit) {
    if (VELA::Systemd::IsEnableStatusChanged(unit)) {
        return false;
    }
    const int status = VELASystemdEnableStatusGetInGenerator(unit);
    return status == ENABLE_STATUS_DISABLED || status == ENABLE_STATUS_ENABLED;
}

// A "yes" from any file wins over a "no" from another, whatever the order.
void Decide(AutoStartDecisions& decisions, const std::string& unit, const std::string& autoStart) {
    if (autoStart == AUTO_START_YES) {
        decisions[unit] = true;
    } else if (autoStart == AUTO_START_NO) {
        decisions.emplace(unit, false);
    }
}

// Reads one override file into `decisions`; files that say nothing usable are
// passed over.
void DecideFromFile(const UpgradePaths& paths, const std::string& fileName, AutoStartDecisions& decisions) {
    const std::string service = LegacyServiceName(fileName);
    if (service.compare(0, PKGCTL_PREFIX.size(), PKGCTL_PREFIX) == 0) {
        return;
    }
    Json::Value config;
    if (!LoadJsonFile(config, paths.overrideDir + fileName)) {
        return;
    }
    if (!config.isMember(KEY_AUTO_START) || !config[KEY_AUTO_START].isString()) {
        return;
    }
    const std::string autoStart = config[KEY_AUTO_START].asString();
    for (const std::string& name : UnitsOfLegacyService(service)) {
        const std::string unit = VELA::Systemd::NormalizedUnitNameGet(name);
        if (IsMigratable(unit)) {
            Decide(decisions, unit, autoStart);
        }
    }
}

// Reads every override file. False when the directory cannot be read to the
// end: then nothing is decided, and nothing may be removed.
bool ReadDecisions(const UpgradePaths& paths, AutoStartDecisions& decisions) {
    boost::system::error_code error;
    for (fs::directory_iterator entry(paths.overrideDir, error), end; !error && entry != end;
         entry.increment(error)) {
        DecideFromFile(paths, entry->path().filename().string(), decisions);
    }
    return !error;
}

void ApplyDecisions(const AutoStartDecisions& decisions) {
    for (const auto& [unit, enable] : decisions) {
        if (enable) {
            (void)VELASystemdEnableInGenerator(unit);
        } else {
            (void)VELASystemdDisableInGenerator(unit);
        }
    }
}

void RemoveLegacyDirectories(const UpgradePaths& paths) {
    boost::system::error_code ignored;
    fs::remove_all(paths.overrideDir, ignored);
    fs::remove_all(paths.confDir, ignored);
}

}  // namespace

UpgradePaths SystemUpgradePaths() {
    return UpgradePaths{UPGRADE_BOOT_MARKER, OLD_PATCH_VERSION_FILE, RUN_DIR,
                        UPGRADE_FLAG_DIR,    SERVICE_OVERRIDE_DIR,   SERVICE_CONF_DIR};
}

bool IsUpgradeBoot(const UpgradePaths& paths) {
    return PathExists(paths.bootMarker) && PathExists(paths.versionFile);
}

bool CheckAndSetUpgradeFlag(const std::string& name, const UpgradePaths& paths) {
    const std::string flagPath = paths.flagDir + name;
    if (PathExists(flagPath)) {
        return true;
    }
    // The flag is made before its step runs: a step once started counts as
    // done for this boot, even if it fails or is cut short.
    if (IsDirectory(paths.runDir)) {
        if (mkdir(paths.flagDir.c_str(), FLAG_DIR_MODE) < 0 && errno != EEXIST) {
            VLOG("Fail to mkdir [%s][%m]", paths.flagDir.c_str());
        }
        if (VLIBCFileTouch(flagPath.c_str()) < 0) {
            VLOG("Fail to touch [%s] flag", name.c_str());
        }
    } else {
        VLOG("/run is not a directory?");
    }
    return false;
}

void RunConfigUpdate(const std::string& conversion, const UpgradePaths& paths) {
    if (!CheckAndSetUpgradeFlag(FLAG_CONFIG_UPDATE_PREFIX + conversion, paths)) {
        (void)VLIBCExec(CONFIG_UPDATE_SCRIPT.c_str(), conversion.c_str(), nullptr, nullptr, nullptr);
    }
}

void MigrateAutoStart(const UpgradePaths& paths) {
    if (!IsDirectory(paths.overrideDir)) {
        return;
    }
    AutoStartDecisions decisions;
    if (!ReadDecisions(paths, decisions)) {
        // Left in place for the next boot to try again.
        return;
    }
    ApplyDecisions(decisions);
    RemoveLegacyDirectories(paths);
}

void RunUpgradeBootMigration(const UpgradePaths& paths) {
    if (!CheckAndSetUpgradeFlag(FLAG_SERVICE_MIGRATE, paths)) {
        (void)VLIBCExec(SERVICE_MIGRATE_BIN.c_str(), SERVICE_MIGRATE_ALL, nullptr, nullptr, nullptr);
    }
    RunConfigUpdate(CONVERSION_UPSTART_TO_SYSTEMD, paths);
    if (!CheckAndSetUpgradeFlag(FLAG_AUTO_START, paths)) {
        MigrateAutoStart(paths);
    }
    RunConfigUpdate(CONVERSION_SYSTEMD_TO_SYSTEMD, paths);
}
