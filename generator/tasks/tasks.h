// The generator tasks and the wants-link writer they share. Each task runs in a
// child process of its own, logs its own failures and returns nothing.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

using UnitList = std::vector<std::string>;

// Unit to be pulled in -> the units (targets) in whose ".wants/" it is linked.
using WantsMap = std::map<std::string, std::set<std::string>>;

// Links every unit of `wants` whose enable status is 1 or 2 into
// dir/T.wants/ of each of its units T, creating those directories as needed.
void CreateWantsLink(const std::string& dir, const WantsMap& wants);

// Writes the shared reason drop-in and links it into dir/S.d/ of every service
// with a reason, one child process per service; returns when all have ended.
void AddReasonDropIns(const std::string& dir);

// Masks every unit the platform reports as unsupported: dir/U -> /dev/null.
void MaskUnsupportedUnits(const std::string& dir, const UnitList& units);

// Links units into the ".wants/" of the targets whose isolation they survive.
void AddStayAliveLinks(const std::string& dir, const UnitList& units);

// Gives every packed unit its PartOf/ReloadPropagatedFrom drop-in under dir
// and links it into its packing units' ".wants/".
void AddPackDropIns(const std::string& dir, const UnitList& units);

// Enables every unit that is enabled by default and whose status is unchanged.
void EnableDefaultUnits(const UnitList& units);
