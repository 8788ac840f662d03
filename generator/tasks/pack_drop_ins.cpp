// Packed units: a unit packed in others is stopped, restarted and reloaded
// with them (its drop-in names them in PartOf= and ReloadPropagatedFrom=), and
// each packing unit pulls it in through a wants-link.
#include <map>
#include <set>
#include <vector>

#include "constants.h"
#include "log.h"
#include "platform_errors.h"
#include "tasks.h"
#include "unit_library.h"
#include "unit_paths.h"

namespace {

// The names in set order, one blank between two.
std::string JoinNames(const std::set<std::string>& names) {
    std::string joined;
    for (const std::string& name : names) {
        if (!joined.empty()) {
            joined += ' ';
        }
        joined += name;
    }
    return joined;
}

void WritePackDropIn(const std::string& dir, const std::string& unit,
                     const std::set<std::string>& packingUnits) {
    const std::string packValue = JoinNames(packingUnits);
    const std::map<std::string, std::string> settings = {
        {KEY_PART_OF, packValue},
        {KEY_RELOAD_PROPAGATED_FROM, packValue},
    };
    // The links do not depend on the drop-in, so a failed write stops nothing.
    (void)VELA::Systemd::AddUnitSection(DropInDirOf(dir, unit), PACK_CONF_NAME, SECTION_UNIT, settings);
}

}  // namespace

void AddPackDropIns(const std::string& dir, const UnitList& units) {
    for (const std::string& unit : units) {
        std::vector<std::string> packs;
        if (!VELASystemdPackedInGet(unit, packs)) {
            if (IsFailureWorthReporting()) {
                VLOG("Fail to get VELASystemdPackedInGet in [%s].", unit.c_str());
            }
            continue;
        }
        if (packs.empty()) {
            continue;
        }
        const std::set<std::string> packingUnits(packs.begin(), packs.end());
        WritePackDropIn(dir, unit, packingUnits);
        CreateWantsLink(dir, WantsMap{{unit, packingUnits}});
    }
}
