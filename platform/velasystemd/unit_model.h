// Every operation of the unit library that depends on the unit tree, with the
// library's contract (unit_library.h). The exported functions use one model
// rooted at "/"; tests build their own on a temporary tree.
//
// Failure codes: 0x700 the unit has no [X-Vela] section (also a mask with no
// file below it), 0x701 no such unit or no valid unit name, 0x702 the unit
// file cannot be read or its [X-Vela] section is malformed, 0x703 the support
// table cannot be read, 0x704 a unit or link directory cannot be listed, 0x705
// a masked unit cannot be enabled, 0x706 nothing to install (a static unit or
// a bare template), 0x707 a link or mark cannot be written.
//
// Enable status: 3 masked (the first entry is a mask), 1 enabled (a link named
// after the unit in a *.wants/ or *.requires/ directory of /etc or /run), 2
// static (no WantedBy= or RequiredBy=), 0 disabled, -1 unknown or unreadable.
// It is read as the local directories are now: other processes change them.
#pragma once

#include <string>
#include <vector>

#include "unit_tree.h"

namespace velasystemd {

class UnitModel {
  public:
    explicit UnitModel(const std::string& root) : tree_(root) {}

    // Every unit except aliases, byte-wise ordered; a non-empty `selector`
    // keeps the units of that type. Parses every unit file first, so that
    // processes forked afterwards inherit the parsed tree.
    bool ListUnits(std::vector<std::string>& units, const std::string& selector);

    // Policy queries: false with the error state set and the out-parameter
    // untouched, else the answer of the unit's [X-Vela] section.
    bool IsSupportGet(const std::string& unit, bool& supported);
    bool IsDefaultEnableGet(const std::string& unit, bool& enabled);
    bool ListGet(const std::string& unit, NameList list, std::vector<std::string>& names);

    bool ListServicesWithReason(std::vector<std::string>& services);
    // The unit's file (for a mask, the file below); std::runtime_error when none.
    std::string UnitPathGet(const std::string& unit);

    int EnableStatusGet(const std::string& unit);
    // The unit's [Install] links to its file: under /run for a unit enabled by
    // default (the policy makes them again at every boot), else under /etc
    // with the unit's change mark, since the enabling departs from the default.
    bool Enable(const std::string& unit);
    // Removes the unit's links from both local directories; for a unit enabled
    // by default writes its change mark.
    bool Disable(const std::string& unit);
    // True when /etc/velasystemd/changed/UNIT exists.
    bool IsEnableStatusChanged(const std::string& unit) const;

  private:
    // The unit's location in the tree as read (`now`: local state as it is
    // now); not found with the error state set.
    Location LocateUnit(const std::string& unit, bool now);
    const UnitFacts* PolicyOf(const std::string& unit);
    bool WriteChangeMark(const std::string& unit);

    UnitTree tree_;
};

}  // namespace velasystemd
