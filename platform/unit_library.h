// Operations of the platform's unit-management library, libvelasystemd.so.7.
//
// Everything the generator knows about units comes through these calls. They
// report failure through their result (false, or -1 for the enable status) and
// record the reason in the core library's error state; only UnitPathGet throws.
// The library may be used by several processes at once.
#pragma once

#include <map>
#include <string>
#include <vector>

// Fills `units` with every unit to look at. `selector` is always "" here.
bool VELASystemdListUnits(std::vector<std::string>& units, const std::string& selector);

// Per-unit metadata queries. On true the out-parameter holds the answer; on
// false it must not be read and VLIBCErrGet() tells why (0x700: the unit
// carries no platform policy, which is nothing to report).
bool VELASystemdIsSupportGet(const std::string& unit, bool& supported);
bool VELASystemdIsDefaultEnableGet(const std::string& unit, bool& enabled);
bool VELASystemdPackedInGet(const std::string& unit, std::vector<std::string>& packs);
bool VELASystemdBelongsToGet(const std::string& unit, std::vector<std::string>& targets);
bool VELASystemdTargetCarriesGet(const std::string& target, std::vector<std::string>& units);

// Enable status as read now: -1 unknown, 0 disabled, 1 enabled, 2 static,
// 3 masked. Never cached: other processes may change it meanwhile.
int VELASystemdEnableStatusGetInGenerator(const std::string& unit);

// Enable or disable a unit from within a generator run; true on success.
bool VELASystemdEnableInGenerator(const std::string& unit);
bool VELASystemdDisableInGenerator(const std::string& unit);

namespace VELA {
namespace Systemd {

// A legacy service name made into a unit name ("ntpd" -> "ntpd.service").
std::string NormalizedUnitNameGet(const std::string& name);

// True when the unit's enable status departs from its default by decision.
bool IsEnableStatusChanged(const std::string& unit);

// The unit's type without the dot ("target"); never fails.
std::string UnitTypeGet(const std::string& unit);

// Absolute path of the unit's file. Throws a std::exception when there is none.
std::string UnitPathGet(const std::string& unit);

// Fills `services` with the service units that run the reason check first.
bool ListServicesWithReason(std::vector<std::string>& services);

// Writes the drop-in `dir` + `fileName` (dir ends with "/") holding `section`
// with one Key=Value line per setting; creates `dir` when missing.
bool AddUnitSection(const std::string& dir, const std::string& fileName, const std::string& section,
                    const std::map<std::string, std::string>& settings);

// Links `reasonFile` into the drop-in directory `dropInDir` (ends with "/"),
// creating the directory when missing.
bool LinkVelaReason(const std::string& dropInDir, const std::string& reasonFile);

}  // namespace Systemd
}  // namespace VELA
