// Applies the platform's default enable policy. A unit whose enable status an
// administrator has changed is left as it is.
#include "log.h"
#include "platform_errors.h"
#include "tasks.h"
#include "unit_library.h"

void EnableDefaultUnits(const UnitList& units) {
    for (const std::string& unit : units) {
        bool enabledByDefault = false;
        if (!VELASystemdIsDefaultEnableGet(unit, enabledByDefault)) {
            if (IsFailureWorthReporting()) {
                VLOG("Fail to VELASystemdIsDefaultEnableGet in [%s].", unit.c_str());
            }
            continue;
        }
        if (!enabledByDefault || VELA::Systemd::IsEnableStatusChanged(unit)) {
            continue;
        }
        if (!VELASystemdEnableInGenerator(unit)) {
            VLOG("Fail to enable unit [%s].", unit.c_str());
        }
    }
}
