// The wants-link writer: the one place where ".wants/" links are made.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

#include "constants.h"
#include "log.h"
#include "platform_errors.h"
#include "tasks.h"
#include "unit_library.h"
#include "unit_paths.h"

namespace {

constexpr mode_t WANTS_DIR_MODE = 0755;

// Enabled units and static ones are pulled in; disabled and masked ones not.
bool IsLinkable(int status) {
    return status == ENABLE_STATUS_ENABLED || status == ENABLE_STATUS_STATIC;
}

// Links `unit` into the ".wants/" directory of `target`. The unit's path is
// asked for each target: it is what the link points at.
void LinkIntoTarget(const std::string& dir, const std::string& unit, const std::string& target) {
    const std::string wantsDir = WantsDirOf(dir, target);
    std::string unitPath;
    try {
        unitPath = VELA::Systemd::UnitPathGet(unit);
    } catch (const std::exception&) {
        // A unit without a file has nothing to link to; not worth a line.
        return;
    }
    // The other link-writing task may have made the directory already.
    if (mkdir(wantsDir.c_str(), WANTS_DIR_MODE) < 0 && errno != EEXIST) {
        const ErrorState error = ReadErrorState();
        VLOG("Fail to create [%s] [0x%04X %s:%d]", wantsDir.c_str(), error.code, error.file, error.line);
        return;
    }
    // An existing link is never replaced: it may be the other task's.
    const std::string linkPath = wantsDir + unit;
    if (symlink(unitPath.c_str(), linkPath.c_str()) < 0) {
        VLOG("Fail to create link from [%s] to [%s] (%m).", wantsDir.c_str(), unitPath.c_str());
    }
}

}  // namespace

void CreateWantsLink(const std::string& dir, const WantsMap& wants) {
    for (const auto& [unit, targets] : wants) {
        const int status = VELASystemdEnableStatusGetInGenerator(unit);
        if (status == ENABLE_STATUS_UNKNOWN) {
            VLOG("Fail to get [%s] enable status.", unit.c_str());
            continue;
        }
        if (!IsLinkable(status)) {
            continue;
        }
        for (const std::string& target : targets) {
            LinkIntoTarget(dir, unit, target);
        }
    }
}
