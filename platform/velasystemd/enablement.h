// The enable state of units, as it is at each call, and its changes.
//
// A unit is masked when its first entry is a mask, enabled when a link named
// after it lies in a *.wants/ or *.requires/ directory of /etc/systemd/system
// or /run/systemd/system, static when its file names no WantedBy= or
// RequiredBy= target, and disabled otherwise. Links are looked up by the name
// asked about, so an alias is enabled by links that carry the alias name.
// The local directories are read as they are now (local_unit_state.h); the
// vendor directories as the catalog scanned them, since no enabling changes
// them.
#pragma once

#include <string>
#include <vector>

#include "local_unit_state.h"
#include "unit_catalog.h"

namespace velasystemd {

constexpr int ENABLE_STATUS_UNKNOWN = -1;
constexpr int ENABLE_STATUS_DISABLED = 0;
constexpr int ENABLE_STATUS_ENABLED = 1;
constexpr int ENABLE_STATUS_STATIC = 2;
constexpr int ENABLE_STATUS_MASKED = 3;

class Enablement {
  public:
    // Reads unit files through `catalog`, which must outlive this object.
    explicit Enablement(UnitCatalog& catalog);

    // One of the ENABLE_STATUS values; UNKNOWN with the error state set when
    // the unit has no file or it cannot be read.
    int StatusGet(const std::string& unit);

    // Makes the unit's [Install] links, each pointing at the unit's file: for a
    // unit enabled by default under /run/systemd/system, which the policy
    // makes again at every boot; for any other unit under /etc/systemd/system,
    // with its change mark, since the enabling departs from the default. False
    // for a masked, static or unknown unit and for a bare template.
    bool Enable(const std::string& unit);

    // Removes the links named after the unit from the link directories of both
    // local unit directories. For a unit enabled by default this departs from
    // the default, so its change mark is written as well.
    bool Disable(const std::string& unit);

    // True when the unit's change mark exists.
    bool IsChanged(const std::string& unit) const;

  private:
    // Where `unit` leads now; not found with the error state set when the
    // name is unknown or the directories cannot be read.
    UnitLocation LocateNow(const std::string& unit);
    // The parsed file of `location`; nullptr for a mask with nothing below it,
    // and with 0x702 set when the file cannot be read.
    const PackedFacts* FactsAt(const UnitLocation& location);
    bool MakeInstallLinks(const std::string& base, const std::string& unit,
                          const std::string& file, const PackedFacts& facts);
    bool RemoveEnableLinks(const std::string& unit);
    bool WriteChangeMark(const std::string& unit);

    UnitCatalog& catalog_;
    LocalUnitState local_;
    // For each catalog directory, its number among the local bases, or -1.
    std::vector<int> local_base_of_;
};

}  // namespace velasystemd
