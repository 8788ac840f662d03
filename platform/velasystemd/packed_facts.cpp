#include "packed_facts.h"

#include "text_util.h"

namespace velasystemd {
namespace {

constexpr char FIELD_END = '\n';
constexpr char NAME_SEPARATOR = ' ';

void AppendList(const std::vector<std::string>& names, std::string& text) {
    for (size_t i = 0; i < names.size(); ++i) {
        if (i > 0) text += NAME_SEPARATOR;
        text += names[i];
    }
    text += FIELD_END;
}

}  // namespace

PackedFacts::PackedFacts(const UnitFileFacts& facts) {
    if (!facts.valid) return;
    flags_ = VALID;
    if (facts.policy_state == PolicyState::PRESENT) flags_ |= POLICY_PRESENT;
    if (facts.policy_state == PolicyState::MALFORMED) flags_ |= POLICY_MALFORMED;
    if (facts.policy.default_enable) flags_ |= DEFAULT_ENABLE;
    if (facts.policy.check_reason) flags_ |= CHECK_REASON;
    if (facts.policy.support_key) flags_ |= HAS_SUPPORT_KEY;
    text_ = facts.policy.support_key.value_or("");
    text_ += FIELD_END;
    for (const auto* list : {&facts.policy.stay_alive_targets, &facts.policy.stay_alive_units,
                             &facts.policy.packed_in, &facts.wanted_by, &facts.required_by}) {
        AppendList(*list, text_);
    }
    text_.shrink_to_fit();
}

PolicyState PackedFacts::policy_state() const {
    if (flags_ & POLICY_MALFORMED) return PolicyState::MALFORMED;
    return (flags_ & POLICY_PRESENT) ? PolicyState::PRESENT : PolicyState::ABSENT;
}

std::optional<std::string> PackedFacts::support_key() const {
    if (!(flags_ & HAS_SUPPORT_KEY)) return std::nullopt;
    return std::string(Field(0));
}

std::vector<std::string> PackedFacts::Names(NameList list) const {
    return SplitWords(Field(1 + static_cast<size_t>(list)));
}

bool PackedFacts::HasInstallTargets() const {
    return !Field(1 + static_cast<size_t>(NameList::WANTED_BY)).empty() ||
           !Field(1 + static_cast<size_t>(NameList::REQUIRED_BY)).empty();
}

std::string_view PackedFacts::Field(size_t index) const {
    std::string_view rest = text_;
    for (size_t skipped = 0; skipped < index; ++skipped) {
        size_t end = rest.find(FIELD_END);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    return rest.substr(0, rest.find(FIELD_END));
}

}  // namespace velasystemd
