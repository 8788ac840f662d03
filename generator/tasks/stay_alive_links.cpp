// Links units into the ".wants/" of the targets whose isolation they must
// survive: a target that wants a unit pulls it in, so isolating to the target
// leaves the unit running. The relation is known from both sides; both are
// gathered into one map before anything is written.
#include <vector>

#include "log.h"
#include "platform_errors.h"
#include "tasks.h"
#include "unit_library.h"

namespace {

// The only type whose units are asked what they carry; compared exactly.
const std::string TARGET_TYPE = "target";

// The units' side: the targets each unit names.
void AddTargetsNamedByUnits(const UnitList& units, WantsMap& stayAlive) {
    for (const std::string& unit : units) {
        std::vector<std::string> targets;
        if (!VELASystemdBelongsToGet(unit, targets)) {
            if (IsFailureWorthReporting()) {
                VLOG("Fail to get StayAliveWhenIsolateToTargets in [%s].", unit.c_str());
            }
            continue;
        }
        for (const std::string& target : targets) {
            stayAlive[unit].insert(target);
        }
    }
}

// The targets' side: the units each target names. A carried unit need not be
// among the listed units to be linked.
void AddUnitsCarriedByTargets(const UnitList& units, WantsMap& stayAlive) {
    for (const std::string& target : units) {
        if (VELA::Systemd::UnitTypeGet(target) != TARGET_TYPE) {
            continue;
        }
        std::vector<std::string> carried;
        if (!VELASystemdTargetCarriesGet(target, carried)) {
            if (IsFailureWorthReporting()) {
                VLOG("Fail to get StayAliveUnitsWhenIsolated in [%s].", target.c_str());
            }
            continue;
        }
        for (const std::string& unit : carried) {
            stayAlive[unit].insert(target);
        }
    }
}

}  // namespace

void AddStayAliveLinks(const std::string& dir, const UnitList& units) {
    WantsMap stayAlive;
    AddTargetsNamedByUnits(units, stayAlive);
    AddUnitsCarriedByTargets(units, stayAlive);
    CreateWantsLink(dir, stayAlive);
}
