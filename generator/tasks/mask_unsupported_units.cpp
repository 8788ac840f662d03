// Masks the units the platform does not support here. The mask goes to the
// early directory, which ranks above the administrator's configuration, so it
// holds whatever else is configured for the unit.
#include <unistd.h>

#include "constants.h"
#include "log.h"
#include "platform_errors.h"
#include "tasks.h"
#include "unit_library.h"

namespace {

void MaskUnit(const std::string& dir, const std::string& unit) {
    const std::string maskPath = dir + "/" + unit;
    if (symlink(DEV_NULL, maskPath.c_str()) < 0) {
        VLOG("Fail to mask unit [%s] (%m).", unit.c_str());
    }
}

}  // namespace

void MaskUnsupportedUnits(const std::string& dir, const UnitList& units) {
    for (const std::string& unit : units) {
        // A unit whose support cannot be read stays unmasked.
        bool supported = true;
        if (!VELASystemdIsSupportGet(unit, supported)) {
            if (IsFailureWorthReporting()) {
                VLOG("Fail to get SupportKey in [%s].", unit.c_str());
            }
            continue;
        }
        if (!supported) {
            MaskUnit(dir, unit);
        }
    }
}
