// The platform's unit model on one unit tree: every operation of the unit
// library that depends on the tree, with the library's contract (see
// unit_library.h). The exported functions use one model rooted at "/"; tests
// build their own on a temporary tree.
//
// Failure codes: 0x700 the unit has no [X-Vela] section (also for a masked
// unit with no file below the mask), 0x701 no such unit (or not a valid unit
// name), 0x702 the unit file cannot be read or its [X-Vela] section is
// malformed, 0x703 the support table cannot be read, 0x704 the unit
// directories (or, for enable state, their link directories) cannot be
// listed, and those of error_codes.h.
#pragma once

#include <string>
#include <vector>

#include "enablement.h"
#include "unit_catalog.h"

namespace velasystemd {

class UnitModel {
  public:
    explicit UnitModel(const std::string& root);
    UnitModel(const UnitModel&) = delete;
    UnitModel& operator=(const UnitModel&) = delete;

    // Every unit except aliases, byte-wise ordered, each once. A non-empty
    // `selector` keeps only the units of that type ("service"). Parses the
    // files of all units found on the way, so that processes forked afterwards
    // inherit the parsed tree (a file outside the unit directories, reached
    // through a link, is parsed when first asked about).
    bool ListUnits(std::vector<std::string>& units, const std::string& selector);

    // The policy queries: true with the answer from the unit's [X-Vela]
    // section (for a masked unit, the section of the file below the mask);
    // false with the error state set and the out-parameter untouched.
    bool IsSupportGet(const std::string& unit, bool& supported);
    bool IsDefaultEnableGet(const std::string& unit, bool& enabled);
    bool PackedInGet(const std::string& unit, std::vector<std::string>& packs) {
        return ListGet(unit, NameList::PACKED_IN, packs);
    }
    bool BelongsToGet(const std::string& unit, std::vector<std::string>& targets) {
        return ListGet(unit, NameList::STAY_ALIVE_TARGETS, targets);
    }
    bool TargetCarriesGet(const std::string& target, std::vector<std::string>& units) {
        return ListGet(target, NameList::STAY_ALIVE_UNITS, units);
    }

    // The listed service units whose policy sets CheckReason=yes.
    bool ListServicesWithReason(std::vector<std::string>& services);

    // The absolute path of the unit's file; for a masked unit the file below
    // the mask. Throws std::runtime_error when there is none.
    std::string UnitPathGet(const std::string& unit);

    int EnableStatusGet(const std::string& unit) { return enablement_.StatusGet(unit); }
    bool Enable(const std::string& unit) { return enablement_.Enable(unit); }
    bool Disable(const std::string& unit) { return enablement_.Disable(unit); }
    bool IsEnableStatusChanged(const std::string& unit) { return enablement_.IsChanged(unit); }

  private:
    // Where `unit` leads, after the scan; not found with the error state set
    // when the scan fails or the name is unknown.
    UnitLocation LocateScanned(const std::string& unit);
    // The facts of a unit with an [X-Vela] section; nullptr with the error
    // state set.
    const PackedFacts* PolicyOf(const std::string& unit);
    bool ListGet(const std::string& unit, NameList list, std::vector<std::string>& names);

    UnitCatalog catalog_;
    Enablement enablement_;
};

}  // namespace velasystemd
