// The exported operations of libvelasystemd.so.7: each hands over to the one
// unit model of this process, which works on the system's own unit tree.

#include "drop_in.h"
#include "unit_library.h"
#include "unit_model.h"
#include "unit_name.h"

namespace {

constexpr const char SYSTEM_ROOT[] = "/";

// Made on first use, so that loading the library does no I/O; a forked child
// inherits it with everything read so far.
velasystemd::UnitModel& SystemModel() {
    static velasystemd::UnitModel model(SYSTEM_ROOT);
    return model;
}

}  // namespace

bool VELASystemdListUnits(std::vector<std::string>& units, const std::string& selector) {
    return SystemModel().ListUnits(units, selector);
}

bool VELASystemdIsSupportGet(const std::string& unit, bool& supported) {
    return SystemModel().IsSupportGet(unit, supported);
}

bool VELASystemdIsDefaultEnableGet(const std::string& unit, bool& enabled) {
    return SystemModel().IsDefaultEnableGet(unit, enabled);
}

bool VELASystemdPackedInGet(const std::string& unit, std::vector<std::string>& packs) {
    return SystemModel().ListGet(unit, velasystemd::NameList::PACKED_IN, packs);
}

bool VELASystemdBelongsToGet(const std::string& unit, std::vector<std::string>& targets) {
    return SystemModel().ListGet(unit, velasystemd::NameList::STAY_ALIVE_TARGETS, targets);
}

bool VELASystemdTargetCarriesGet(const std::string& target, std::vector<std::string>& units) {
    return SystemModel().ListGet(target, velasystemd::NameList::STAY_ALIVE_UNITS, units);
}

int VELASystemdEnableStatusGetInGenerator(const std::string& unit) {
    return SystemModel().EnableStatusGet(unit);
}

bool VELASystemdEnableInGenerator(const std::string& unit) {
    return SystemModel().Enable(unit);
}

bool VELASystemdDisableInGenerator(const std::string& unit) {
    return SystemModel().Disable(unit);
}

namespace VELA {
namespace Systemd {

std::string NormalizedUnitNameGet(const std::string& name) {
    return velasystemd::NormalizedUnitName(name);
}

bool IsEnableStatusChanged(const std::string& unit) {
    return SystemModel().IsEnableStatusChanged(unit);
}

std::string UnitTypeGet(const std::string& unit) {
    return velasystemd::UnitTypeOf(unit);
}

std::string UnitPathGet(const std::string& unit) {
    return SystemModel().UnitPathGet(unit);
}

bool ListServicesWithReason(std::vector<std::string>& services) {
    return SystemModel().ListServicesWithReason(services);
}

bool AddUnitSection(const std::string& dir, const std::string& fileName, const std::string& section,
                    const std::map<std::string, std::string>& settings) {
    return velasystemd::WriteUnitSection(dir, fileName, section, settings);
}

bool LinkVelaReason(const std::string& dropInDir, const std::string& reasonFile) {
    return velasystemd::LinkIntoDropInDir(dropInDir, reasonFile);
}

}  // namespace Systemd
}  // namespace VELA
