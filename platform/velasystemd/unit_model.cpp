#include "unit_model.h"

#include <malloc.h>

#include <optional>
#include <stdexcept>

#include "error_codes.h"
#include "unit_name.h"

namespace velasystemd {
namespace {

constexpr const char SERVICE_TYPE[] = "service";

}  // namespace

UnitModel::UnitModel(const std::string& root) : catalog_(root), enablement_(catalog_) {}

bool UnitModel::ListUnits(std::vector<std::string>& units, const std::string& selector) {
    if (!catalog_.LoadIndex()) return false;
    // Parsed now for the children to inherit; a bad file is the queries' failure.
    catalog_.LoadAll();
    units.clear();
    for (std::string& name : catalog_.Names()) {
        if (!selector.empty() && UnitTypeOf(name) != selector) continue;
        if (!catalog_.Locate(name).alias) units.push_back(std::move(name));
    }
    // What the scan and the parsing left free goes back to the system, so
    // that the forks to come do not copy it.
    (void)malloc_trim(0);
    return true;
}

UnitLocation UnitModel::LocateScanned(const std::string& unit) {
    UnitLocation location;
    if (IsValidUnitName(unit)) {
        if (!catalog_.LoadIndex()) return location;
        location = catalog_.Locate(unit);
    }
    if (!location.found) VLIBC_ERR_SET(VLIBC_ERR_NO_SUCH_UNIT);
    return location;
}

const PackedFacts* UnitModel::PolicyOf(const std::string& unit) {
    UnitLocation location = LocateScanned(unit);
    if (!location.found) return nullptr;
    if (location.file.empty()) {
        VLIBC_ERR_SET(VLIBC_ERR_NO_POLICY);
        return nullptr;
    }
    const PackedFacts* facts = catalog_.FactsOf(location.file);
    if (facts == nullptr) return nullptr;
    switch (facts->policy_state()) {
        case PolicyState::PRESENT:
            return facts;
        case PolicyState::ABSENT:
            VLIBC_ERR_SET(VLIBC_ERR_NO_POLICY);
            return nullptr;
        case PolicyState::MALFORMED:
            break;
    }
    VLIBC_ERR_SET(VLIBC_ERR_UNIT_UNREADABLE);
    return nullptr;
}

bool UnitModel::IsSupportGet(const std::string& unit, bool& supported) {
    const PackedFacts* policy = PolicyOf(unit);
    if (policy == nullptr) return false;
    std::optional<std::string> key = policy->support_key();
    if (!key) {
        supported = true;
        return true;
    }
    const SupportTable* table = catalog_.Support();
    if (table == nullptr) return false;
    auto entry = table->find(*key);
    supported = entry != table->end() && entry->second;
    return true;
}

bool UnitModel::IsDefaultEnableGet(const std::string& unit, bool& enabled) {
    const PackedFacts* policy = PolicyOf(unit);
    if (policy == nullptr) return false;
    enabled = policy->default_enable();
    return true;
}

bool UnitModel::ListGet(const std::string& unit, NameList list, std::vector<std::string>& names) {
    const PackedFacts* policy = PolicyOf(unit);
    if (policy == nullptr) return false;
    names = policy->Names(list);
    return true;
}

bool UnitModel::ListServicesWithReason(std::vector<std::string>& services) {
    std::vector<std::string> units;
    if (!ListUnits(units, SERVICE_TYPE)) return false;
    services.clear();
    for (const std::string& unit : units) {
        UnitLocation location = catalog_.Locate(unit);
        if (location.file.empty()) continue;
        const PackedFacts& facts = catalog_.Load(location.file);
        if (facts.policy_state() == PolicyState::PRESENT && facts.check_reason()) {
            services.push_back(unit);
        }
    }
    return true;
}

std::string UnitModel::UnitPathGet(const std::string& unit) {
    UnitLocation location = LocateScanned(unit);
    if (location.file.empty()) throw std::runtime_error("no unit file for " + unit);
    return location.file;
}

}  // namespace velasystemd
