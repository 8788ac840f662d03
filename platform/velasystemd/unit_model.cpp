#include "unit_model.h"

#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "file_io.h"
#include "unit_name.h"
#include "velacore/error_state.h"

namespace velasystemd {
namespace {

constexpr const char SERVICE_TYPE[] = "service";

struct InstallLinks {
    NameList list;
    const char* suffix;
};
constexpr InstallLinks INSTALL_LINKS[] = {
    {NameList::WANTED_BY, ".wants"},
    {NameList::REQUIRED_BY, ".requires"},
};

// Whether the policy enables the unit by default; false with 0x702 when it
// cannot be told.
bool ReadDefaultEnable(const UnitFacts& facts, bool& enabled) {
    if (facts.policy_state() == PolicyState::MALFORMED) {
        VLIBC_ERR_SET(VLIBC_ERR_UNIT_UNREADABLE);
        return false;
    }
    enabled = facts.policy_state() == PolicyState::PRESENT && facts.default_enable();
    return true;
}

}  // namespace

bool UnitModel::ListUnits(std::vector<std::string>& units, const std::string& selector) {
    if (!tree_.Load()) return false;
    tree_.ParseAll();
    units = tree_.UnitNames(selector);
    // What reading left free goes back to the system: the forks to come do not copy it.
    (void)malloc_trim(0);
    return true;
}

Location UnitModel::LocateUnit(const std::string& unit, bool now) {
    Location location;
    if (!IsValidUnitName(unit)) {
        VLIBC_ERR_SET(VLIBC_ERR_NO_SUCH_UNIT);
        return location;
    }
    if (!tree_.Load() || (now && !tree_.RefreshLocal())) return location;
    location = tree_.Locate(unit);
    if (!location.found) VLIBC_ERR_SET(VLIBC_ERR_NO_SUCH_UNIT);
    return location;
}

const UnitFacts* UnitModel::PolicyOf(const std::string& unit) {
    Location location = LocateUnit(unit, false);
    if (!location.found) return nullptr;
    const UnitFacts* facts = location.file ? tree_.FactsOf(location) : nullptr;
    if (location.file && facts == nullptr) return nullptr;
    if (facts && facts->policy_state() == PolicyState::PRESENT) return facts;
    bool malformed = facts && facts->policy_state() == PolicyState::MALFORMED;
    VLIBC_ERR_SET(malformed ? VLIBC_ERR_UNIT_UNREADABLE : VLIBC_ERR_NO_POLICY);
    return nullptr;
}

bool UnitModel::IsSupportGet(const std::string& unit, bool& supported) {
    const UnitFacts* policy = PolicyOf(unit);
    if (policy == nullptr) return false;
    std::optional<std::string> key = policy->support_key();
    const SupportTable* table = key ? tree_.Support() : nullptr;
    if (key && table == nullptr) return false;
    supported = !key || (table->count(*key) > 0 && table->at(*key));
    return true;
}

bool UnitModel::IsDefaultEnableGet(const std::string& unit, bool& enabled) {
    const UnitFacts* policy = PolicyOf(unit);
    if (policy == nullptr) return false;
    enabled = policy->default_enable();
    return true;
}

bool UnitModel::ListGet(const std::string& unit, NameList list, std::vector<std::string>& names) {
    const UnitFacts* policy = PolicyOf(unit);
    if (policy == nullptr) return false;
    names = policy->Names(list);
    return true;
}

bool UnitModel::ListServicesWithReason(std::vector<std::string>& services) {
    if (!tree_.Load()) return false;
    tree_.ParseAll();
    // Filtered as the names are merged: a list of every service first would
    // leave its memory behind in the process that forks one child per service.
    services = tree_.UnitNames(SERVICE_TYPE, [this](const std::string& unit) {
        Location location = tree_.Locate(unit);
        if (location.file == nullptr) return false;
        const UnitFacts* facts = tree_.FactsOf(location);
        return facts && facts->policy_state() == PolicyState::PRESENT && facts->check_reason();
    });
    return true;
}

std::string UnitModel::UnitPathGet(const std::string& unit) {
    std::string path = UnitTree::PathOf(LocateUnit(unit, false));
    if (path.empty()) throw std::runtime_error("no unit file for " + unit);
    return path;
}

int UnitModel::EnableStatusGet(const std::string& unit) {
    Location location = LocateUnit(unit, true);
    if (!location.found) return -1;
    if (location.masked) return 3;
    const UnitFacts* facts = location.file ? tree_.FactsOf(location) : nullptr;
    if (facts == nullptr) return -1;
    std::vector<std::string> links;
    if (!tree_.LinksNamed(unit, links)) return -1;
    if (!links.empty()) return 1;
    return facts->HasInstallTargets() ? 0 : 2;
}

bool UnitModel::Enable(const std::string& unit) {
    Location location = LocateUnit(unit, true);
    if (!location.found) return false;
    if (location.masked) {
        VLIBC_ERR_SET(VLIBC_ERR_UNIT_MASKED);
        return false;
    }
    const UnitFacts* facts = tree_.FactsOf(location);
    if (facts == nullptr) return false;
    if (!facts->HasInstallTargets() || IsTemplateName(unit)) {
        VLIBC_ERR_SET(VLIBC_ERR_NOTHING_TO_INSTALL);
        return false;
    }
    bool by_default = false;
    if (!ReadDefaultEnable(*facts, by_default)) return false;
    const std::string base = tree_.root() + (by_default ? RUNTIME_UNIT_DIR : PERSISTENT_UNIT_DIR);
    const std::string file = UnitTree::PathOf(location);
    bool all_made = true;
    for (const InstallLinks& install : INSTALL_LINKS) {
        for (const std::string& target : facts->Names(install.list)) {
            const std::string directory = base + "/" + target + install.suffix;
            if (!MakeDirectories(directory) || !MakeLinkOnce(file, directory + "/" + unit)) {
                VLIBC_ERR_SET(VLIBC_ERR_WRITE);
                all_made = false;
            }
        }
    }
    return all_made && (by_default || WriteChangeMark(unit));
}

bool UnitModel::Disable(const std::string& unit) {
    Location location = LocateUnit(unit, true);
    if (!location.found) return false;
    std::vector<std::string> links;
    if (!tree_.LinksNamed(unit, links)) return false;
    bool all_removed = true;
    for (const std::string& link : links) {
        if (unlink(link.c_str()) < 0 && errno != ENOENT) {
            VLIBC_ERR_SET(VLIBC_ERR_WRITE);
            all_removed = false;
        }
    }
    if (!all_removed) return false;
    // A mask without a file below it has no policy, hence no default to depart from.
    if (location.file == nullptr) return true;
    const UnitFacts* facts = tree_.FactsOf(location);
    bool by_default = false;
    if (facts == nullptr || !ReadDefaultEnable(*facts, by_default)) return false;
    return !by_default || WriteChangeMark(unit);
}

bool UnitModel::WriteChangeMark(const std::string& unit) {
    const std::string directory = tree_.root() + CHANGE_MARK_DIR;
    if (MakeDirectories(directory) && TouchFile(directory + "/" + unit)) return true;
    VLIBC_ERR_SET(VLIBC_ERR_WRITE);
    return false;
}

bool UnitModel::IsEnableStatusChanged(const std::string& unit) const {
    if (!IsValidUnitName(unit)) return false;
    struct stat status;
    return lstat((tree_.root() + CHANGE_MARK_DIR + "/" + unit).c_str(), &status) == 0;
}

}  // namespace velasystemd
