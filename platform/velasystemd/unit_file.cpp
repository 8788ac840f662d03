#include "unit_file.h"

#include <algorithm>

#include "unit_name.h"

namespace velasystemd {
namespace {

// What systemd treats as blank around keys, values and list elements.
constexpr std::string_view BLANKS = " \t\n\r";
constexpr char FIELD_END = '\n';
constexpr char NAME_SEPARATOR = ' ';
constexpr std::string_view POLICY_SECTION = "X-Vela";
constexpr std::string_view INSTALL_SECTION = "Install";
constexpr std::string_view COMMENT_STARTS = "#;";
constexpr char CONTINUATION = '\\';
constexpr std::string_view YES = "yes";
constexpr std::string_view NO = "no";
constexpr size_t SUPPORT_FIELD = 0;

struct FlagKey {
    std::string_view key;
    uint8_t flag;
};
constexpr FlagKey FLAG_KEYS[] = {
    {"DefaultEnable", UnitFacts::DEFAULT_ENABLE},
    {"CheckReason", UnitFacts::CHECK_REASON},
};

struct ListKey {
    std::string_view key;
    NameList list;
};
constexpr ListKey POLICY_LIST_KEYS[] = {
    {"StayAliveWhenIsolateToTargets", NameList::STAY_ALIVE_TARGETS},
    {"StayAliveUnitsWhenIsolated", NameList::STAY_ALIVE_UNITS},
    {"PackedIn", NameList::PACKED_IN},
};
constexpr ListKey INSTALL_LIST_KEYS[] = {
    {"WantedBy", NameList::WANTED_BY},
    {"RequiredBy", NameList::REQUIRED_BY},
};

size_t FieldOf(NameList list) {
    return 1 + static_cast<size_t>(list);
}

std::string_view StripBlanks(std::string_view text) {
    size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

// Calls `visit` with each line of `text`, without its '\n', stripped.
template <typename Visit>
void ForEachLine(std::string_view text, Visit visit) {
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find(FIELD_END, start);
        if (end == std::string_view::npos) end = text.size();
        visit(StripBlanks(text.substr(start, end - start)));
        start = end + 1;
    }
}

template <typename Visit>
void ForEachWord(std::string_view text, Visit visit) {
    size_t start = text.find_first_not_of(BLANKS);
    while (start != std::string_view::npos) {
        size_t end = std::min(text.find_first_of(BLANKS, start), text.size());
        visit(text.substr(start, end - start));
        start = text.find_first_not_of(BLANKS, end);
    }
}

// Reads the unit file into flags and fields, then packs them.
class UnitFileParser {
  public:
    void ApplyLine(std::string_view line) {
        if (line.empty()) return;
        if (line.front() == '[') return OpenSection(line);
        size_t assignment = line.find('=');
        std::string_view key = StripBlanks(line.substr(0, assignment));
        std::string_view value;
        if (assignment != std::string_view::npos) value = StripBlanks(line.substr(assignment + 1));
        if (section_ == POLICY_SECTION) {
            if (assignment == std::string_view::npos || !ApplyPolicySetting(key, value)) {
                flags_ |= UnitFacts::POLICY_MALFORMED;
            }
        } else if (section_ == INSTALL_SECTION && assignment != std::string_view::npos) {
            for (const ListKey& list_key : INSTALL_LIST_KEYS) {
                if (key == list_key.key) AddNames(value, FieldOf(list_key.list));
            }
        }
    }

    UnitFacts Facts() const { return UnitFacts(flags_, fields_); }

  private:
    void OpenSection(std::string_view line) {
        section_.clear();
        if (line.size() < 2 || line.back() != ']') {
            flags_ &= static_cast<uint8_t>(~UnitFacts::VALID);
            return;
        }
        section_ = line.substr(1, line.size() - 2);
        if (section_ == POLICY_SECTION) flags_ |= UnitFacts::POLICY_PRESENT;
    }

    // False when the key or the value is not understood.
    bool ApplyPolicySetting(std::string_view key, std::string_view value) {
        if (key == "SupportKey") return SetSupportKey(value);
        for (const FlagKey& flag_key : FLAG_KEYS) {
            if (key != flag_key.key) continue;
            if (value != YES && value != NO && !value.empty()) return false;
            flags_ = value == YES ? flags_ | flag_key.flag : flags_ & ~flag_key.flag;
            return true;
        }
        for (const ListKey& list_key : POLICY_LIST_KEYS) {
            if (key == list_key.key) return AddNames(value, FieldOf(list_key.list));
        }
        return false;
    }

    bool SetSupportKey(std::string_view value) {
        if (!value.empty() && !IsSupportName(value)) return false;
        fields_[SUPPORT_FIELD] = value;
        flags_ = value.empty() ? flags_ & ~UnitFacts::HAS_SUPPORT_KEY
                               : flags_ | UnitFacts::HAS_SUPPORT_KEY;
        return true;
    }

    // Adds the valid unit names of `value` to the list field; an empty value
    // empties it. False when some element is no valid unit name.
    bool AddNames(std::string_view value, size_t field) {
        std::string& list = fields_[field];
        if (value.empty()) list.clear();
        bool all_valid = true;
        ForEachWord(value, [&](std::string_view word) {
            if (!IsValidUnitName(word)) {
                all_valid = false;
                return;
            }
            if (!list.empty()) list += NAME_SEPARATOR;
            list += word;
        });
        return all_valid;
    }

    std::string section_;
    uint8_t flags_ = UnitFacts::VALID;
    std::string fields_[UnitFacts::FIELD_COUNT];
};

}  // namespace

UnitFacts::UnitFacts(uint8_t flags, const std::string (&fields)[FIELD_COUNT]) : flags_(flags) {
    if (!valid()) {
        flags_ = 0;
        return;
    }
    size_t size = 0;
    for (const std::string& field : fields) size += field.size() + 1;
    text_.reserve(size);
    for (const std::string& field : fields) text_.append(field).push_back(FIELD_END);
    text_.shrink_to_fit();
}

PolicyState UnitFacts::policy_state() const {
    if (flags_ & POLICY_MALFORMED) return PolicyState::MALFORMED;
    return (flags_ & POLICY_PRESENT) ? PolicyState::PRESENT : PolicyState::ABSENT;
}

std::optional<std::string> UnitFacts::support_key() const {
    if (!(flags_ & HAS_SUPPORT_KEY)) return std::nullopt;
    return std::string(Field(SUPPORT_FIELD));
}

std::vector<std::string> UnitFacts::Names(NameList list) const {
    std::vector<std::string> names;
    ForEachWord(Field(FieldOf(list)), [&](std::string_view name) { names.emplace_back(name); });
    return names;
}

bool UnitFacts::HasInstallTargets() const {
    return !Field(FieldOf(NameList::WANTED_BY)).empty() ||
           !Field(FieldOf(NameList::REQUIRED_BY)).empty();
}

std::string_view UnitFacts::Field(size_t index) const {
    std::string_view rest = text_;
    for (size_t skipped = 0; skipped < index && !rest.empty(); ++skipped) {
        rest.remove_prefix(rest.find(FIELD_END) + 1);
    }
    return rest.substr(0, rest.find(FIELD_END));
}

UnitFacts ParseUnitFile(std::string_view text) {
    UnitFileParser parser;
    std::string pending;  // a line continued by '\'
    bool continuing = false;
    auto apply = [&](std::string_view line) {
        if (!line.empty() && COMMENT_STARTS.find(line.front()) != std::string_view::npos) return;
        // Most lines continue nothing and are continued by nothing: applied as they are.
        if (pending.empty() && (line.empty() || line.back() != CONTINUATION)) return parser.ApplyLine(line);
        pending.append(line);
        continuing = !pending.empty() && pending.back() == CONTINUATION;
        if (continuing) {
            pending.back() = ' ';
            return;
        }
        parser.ApplyLine(pending);
        pending.clear();
    };
    ForEachLine(text, apply);
    if (continuing) parser.ApplyLine(pending);
    return parser.Facts();
}

bool IsSupportName(std::string_view name) {
    if (name.empty()) return false;
    for (char c : name) {
        if (c <= ' ' || c > '~' || c == '=') return false;
    }
    return true;
}

std::optional<SupportTable> ParseSupportTable(std::string_view text) {
    SupportTable table;
    bool understood = true;
    ForEachLine(text, [&](std::string_view line) {
        if (line.empty() || line.front() == '#') return;
        size_t assignment = line.find('=');
        std::string_view name = StripBlanks(line.substr(0, assignment));
        std::string_view value = assignment == std::string_view::npos
                                     ? std::string_view()
                                     : StripBlanks(line.substr(assignment + 1));
        bool supported = value == YES;
        if (!IsSupportName(name) || (!supported && value != NO)) {
            understood = false;
            return;
        }
        auto [entry, added] = table.emplace(std::string(name), supported);
        understood = understood && (added || entry->second == supported);
    });
    if (!understood) return std::nullopt;
    return table;
}

}  // namespace velasystemd
