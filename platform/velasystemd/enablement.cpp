#include "enablement.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "error_codes.h"
#include "file_io.h"
#include "paths.h"
#include "unit_name.h"

namespace velasystemd {
namespace {

constexpr const char WANTS_SUFFIX[] = ".wants";
constexpr const char REQUIRES_SUFFIX[] = ".requires";

// Whether the unit's policy enables it by default; false with 0x702 when the
// policy cannot be told.
bool ReadDefaultEnable(const PackedFacts& facts, bool& enabled) {
    if (facts.policy_state() == PolicyState::MALFORMED) {
        VLIBC_ERR_SET(VLIBC_ERR_UNIT_UNREADABLE);
        return false;
    }
    enabled = facts.policy_state() == PolicyState::PRESENT && facts.default_enable();
    return true;
}

// The local unit directories under `root`, highest precedence first.
std::vector<std::string> LocalBasesUnder(const std::string& root) {
    return {root + PERSISTENT_UNIT_DIR, root + RUNTIME_UNIT_DIR};
}

}  // namespace

Enablement::Enablement(UnitCatalog& catalog)
    : catalog_(catalog), local_(catalog.Root(), LocalBasesUnder(catalog.Root())) {
    const std::vector<std::string> local_bases = LocalBasesUnder(catalog.Root());
    for (const std::string& directory : catalog.Directories()) {
        int local_base = -1;
        for (size_t base = 0; base < local_bases.size(); ++base) {
            if (directory == local_bases[base]) local_base = static_cast<int>(base);
        }
        local_base_of_.push_back(local_base);
    }
}

UnitLocation Enablement::LocateNow(const std::string& unit) {
    if (!IsValidUnitName(unit)) {
        VLIBC_ERR_SET(VLIBC_ERR_NO_SUCH_UNIT);
        return UnitLocation();
    }
    if (!catalog_.LoadIndex()) return UnitLocation();
    if (!local_.Refresh()) {
        VLIBC_ERR_SET(VLIBC_ERR_LIST_UNITS);
        return UnitLocation();
    }
    UnitLocation location =
        LocateUnit(unit, local_base_of_.size(), [this](size_t directory, const std::string& name) {
            int base = local_base_of_[directory];
            if (base >= 0) return local_.EntryOf(static_cast<size_t>(base), name);
            return catalog_.ScannedEntry(directory, name);
        });
    if (!location.found) VLIBC_ERR_SET(VLIBC_ERR_NO_SUCH_UNIT);
    return location;
}

const PackedFacts* Enablement::FactsAt(const UnitLocation& location) {
    if (location.file.empty()) return nullptr;
    return catalog_.FactsOf(location.file);
}

int Enablement::StatusGet(const std::string& unit) {
    UnitLocation location = LocateNow(unit);
    if (!location.found) return ENABLE_STATUS_UNKNOWN;
    if (location.masked) return ENABLE_STATUS_MASKED;
    const PackedFacts* facts = FactsAt(location);
    if (facts == nullptr) return ENABLE_STATUS_UNKNOWN;
    if (!local_.LinksNamed(unit).empty()) return ENABLE_STATUS_ENABLED;
    if (!facts->HasInstallTargets()) return ENABLE_STATUS_STATIC;
    return ENABLE_STATUS_DISABLED;
}

bool Enablement::Enable(const std::string& unit) {
    UnitLocation location = LocateNow(unit);
    if (!location.found) return false;
    if (location.masked) {
        VLIBC_ERR_SET(ERR_UNIT_MASKED);
        return false;
    }
    const PackedFacts* facts = FactsAt(location);
    if (facts == nullptr) return false;
    if (!facts->HasInstallTargets() || IsTemplateName(unit)) {
        VLIBC_ERR_SET(ERR_NOTHING_TO_INSTALL);
        return false;
    }
    bool by_default = false;
    if (!ReadDefaultEnable(*facts, by_default)) return false;
    const std::string base = catalog_.Root() + (by_default ? RUNTIME_UNIT_DIR : PERSISTENT_UNIT_DIR);
    if (!MakeInstallLinks(base, unit, location.file, *facts)) return false;
    return by_default || WriteChangeMark(unit);
}

bool Enablement::MakeInstallLinks(const std::string& base, const std::string& unit,
                                  const std::string& file, const PackedFacts& facts) {
    bool all_made = true;
    auto make_links = [&](const std::vector<std::string>& targets, const char* suffix) {
        for (const std::string& target : targets) {
            std::string directory = base + "/" + target + suffix;
            if (!MakeDirectories(directory) || !MakeLinkOnce(file, directory + "/" + unit)) {
                VLIBC_ERR_SET(ERR_WRITE);
                all_made = false;
            }
        }
    };
    make_links(facts.Names(NameList::WANTED_BY), WANTS_SUFFIX);
    make_links(facts.Names(NameList::REQUIRED_BY), REQUIRES_SUFFIX);
    return all_made;
}

bool Enablement::Disable(const std::string& unit) {
    UnitLocation location = LocateNow(unit);
    if (!location.found || !RemoveEnableLinks(unit)) return false;
    // A mask without a file below it has no policy, hence no default to depart from.
    if (location.file.empty()) return true;
    const PackedFacts* facts = FactsAt(location);
    bool by_default = false;
    if (facts == nullptr || !ReadDefaultEnable(*facts, by_default)) return false;
    return !by_default || WriteChangeMark(unit);
}

bool Enablement::RemoveEnableLinks(const std::string& unit) {
    bool all_removed = true;
    for (const std::string& link : local_.LinksNamed(unit)) {
        if (unlink(link.c_str()) < 0 && errno != ENOENT) {
            VLIBC_ERR_SET(ERR_WRITE);
            all_removed = false;
        }
    }
    return all_removed;
}

bool Enablement::WriteChangeMark(const std::string& unit) {
    const std::string directory = catalog_.Root() + CHANGE_MARK_DIR;
    if (MakeDirectories(directory) && TouchFile(directory + "/" + unit)) return true;
    VLIBC_ERR_SET(ERR_WRITE);
    return false;
}

bool Enablement::IsChanged(const std::string& unit) const {
    if (!IsValidUnitName(unit)) return false;
    const std::string mark = catalog_.Root() + CHANGE_MARK_DIR + "/" + unit;
    struct stat status;
    return lstat(mark.c_str(), &status) == 0;
}

}  // namespace velasystemd
