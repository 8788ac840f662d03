#include "unit_file_parser.h"

#include "support_table_parser.h"
#include "text_util.h"
#include "unit_name.h"

namespace velasystemd {
namespace {

constexpr std::string_view POLICY_SECTION = "X-Vela";
constexpr std::string_view INSTALL_SECTION = "Install";
constexpr std::string_view COMMENT_STARTS = "#;";
constexpr char SECTION_OPEN = '[';
constexpr char SECTION_CLOSE = ']';
constexpr char ASSIGNMENT = '=';
constexpr char CONTINUATION = '\\';
constexpr std::string_view YES = "yes";
constexpr std::string_view NO = "no";

constexpr std::string_view SUPPORT_KEY = "SupportKey";

struct FlagKey {
    std::string_view key;
    bool VelaPolicy::*flag;
};
constexpr FlagKey FLAG_KEYS[] = {
    {"DefaultEnable", &VelaPolicy::default_enable},
    {"CheckReason", &VelaPolicy::check_reason},
};

template <typename Record>
struct ListKey {
    std::string_view key;
    std::vector<std::string> Record::*list;
};
constexpr ListKey<VelaPolicy> POLICY_LIST_KEYS[] = {
    {"StayAliveWhenIsolateToTargets", &VelaPolicy::stay_alive_targets},
    {"StayAliveUnitsWhenIsolated", &VelaPolicy::stay_alive_units},
    {"PackedIn", &VelaPolicy::packed_in},
};
constexpr ListKey<UnitFileFacts> INSTALL_LIST_KEYS[] = {
    {"WantedBy", &UnitFileFacts::wanted_by},
    {"RequiredBy", &UnitFileFacts::required_by},
};

bool IsComment(std::string_view line) {
    return !line.empty() && COMMENT_STARTS.find(line.front()) != std::string_view::npos;
}

// Calls `visit` with each logical line: continued lines joined, comments dropped.
template <typename Visit>
void ForEachLogicalLine(std::string_view text, Visit visit) {
    std::string pending;
    bool continuing = false;
    ForEachLine(text, [&](std::string_view raw_line) {
        std::string_view line = StripBlanks(raw_line);
        if (IsComment(line)) return;
        pending.append(line);
        continuing = !pending.empty() && pending.back() == CONTINUATION;
        if (continuing) {
            pending.back() = ' ';
            return;
        }
        visit(std::string_view(pending));
        pending.clear();
    });
    if (continuing) visit(std::string_view(pending));
}

// Reads "yes" or "no" into `flag`; an empty value restores the default.
bool ParseFlag(std::string_view value, bool& flag) {
    if (value.empty() || value == NO) {
        flag = false;
        return true;
    }
    if (value != YES) return false;
    flag = true;
    return true;
}

// Adds the valid unit names of `value` to `list`; an empty value empties it.
// False when some element is not a valid unit name; with `skip_invalid` such
// elements are passed over instead.
bool AddUnitNames(std::string_view value, std::vector<std::string>& list, bool skip_invalid) {
    if (value.empty()) {
        list.clear();
        return true;
    }
    bool all_valid = true;
    for (std::string& name : SplitWords(value)) {
        if (IsValidUnitName(name)) {
            list.push_back(std::move(name));
        } else {
            all_valid = false;
        }
    }
    return all_valid || skip_invalid;
}

bool ApplySupportKey(std::string_view value, VelaPolicy& policy) {
    if (value.empty()) {
        policy.support_key.reset();
        return true;
    }
    if (!IsSupportName(value)) return false;
    policy.support_key = std::string(value);
    return true;
}

// Applies one [X-Vela] setting; false when the key or value is not understood.
bool ApplyPolicySetting(std::string_view key, std::string_view value, VelaPolicy& policy) {
    if (key == SUPPORT_KEY) return ApplySupportKey(value, policy);
    for (const FlagKey& flag_key : FLAG_KEYS) {
        if (key == flag_key.key) return ParseFlag(value, policy.*flag_key.flag);
    }
    for (const auto& list_key : POLICY_LIST_KEYS) {
        if (key == list_key.key) return AddUnitNames(value, policy.*list_key.list, false);
    }
    return false;
}

void ApplyInstallSetting(std::string_view key, std::string_view value, UnitFileFacts& facts) {
    for (const auto& list_key : INSTALL_LIST_KEYS) {
        if (key == list_key.key) AddUnitNames(value, facts.*list_key.list, true);
    }
}

class UnitFileParser {
  public:
    void ApplyLine(std::string_view line) {
        if (line.empty()) return;
        if (line.front() == SECTION_OPEN) {
            OpenSection(line);
            return;
        }
        size_t assignment = line.find(ASSIGNMENT);
        std::string_view key = StripBlanks(line.substr(0, assignment));
        std::string_view value;
        if (assignment != std::string_view::npos) value = StripBlanks(line.substr(assignment + 1));
        if (section_ == POLICY_SECTION) {
            bool understood = assignment != std::string_view::npos && !key.empty() &&
                              ApplyPolicySetting(key, value, facts_.policy);
            if (!understood) facts_.policy_state = PolicyState::MALFORMED;
        } else if (section_ == INSTALL_SECTION && assignment != std::string_view::npos) {
            ApplyInstallSetting(key, value, facts_);
        }
    }

    UnitFileFacts Facts() && { return std::move(facts_); }

  private:
    void OpenSection(std::string_view line) {
        if (line.size() < 2 || line.back() != SECTION_CLOSE) {
            facts_.valid = false;
            section_.clear();
            return;
        }
        section_ = std::string(line.substr(1, line.size() - 2));
        if (section_ == POLICY_SECTION && facts_.policy_state == PolicyState::ABSENT) {
            facts_.policy_state = PolicyState::PRESENT;
        }
    }

    std::string section_;
    UnitFileFacts facts_;
};

}  // namespace

UnitFileFacts ParseUnitFile(std::string_view text) {
    UnitFileParser parser;
    ForEachLogicalLine(text, [&](std::string_view line) { parser.ApplyLine(line); });
    return std::move(parser).Facts();
}

}  // namespace velasystemd
