// Fuzzes the unit-file parser: whatever text a unit file holds, parsing ends,
// and what it yields keeps the parser's promises.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "support_table_parser.h"
#include "unit_file_parser.h"
#include "unit_name.h"

namespace {

using velasystemd::UnitFileFacts;
using velasystemd::VelaPolicy;

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void RequireUnitNames(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        Require(velasystemd::IsValidUnitName(name));
    }
}

bool SamePolicy(const VelaPolicy& a, const VelaPolicy& b) {
    return a.support_key == b.support_key && a.default_enable == b.default_enable &&
           a.check_reason == b.check_reason && a.stay_alive_targets == b.stay_alive_targets &&
           a.stay_alive_units == b.stay_alive_units && a.packed_in == b.packed_in;
}

bool SameFacts(const UnitFileFacts& a, const UnitFileFacts& b) {
    return a.valid == b.valid && a.policy_state == b.policy_state && SamePolicy(a.policy, b.policy) &&
           a.wanted_by == b.wanted_by && a.required_by == b.required_by;
}

// The same text with every line ended by "\r\n" instead of "\n".
std::string WithCarriageReturns(std::string_view text) {
    std::string crlf;
    crlf.reserve(text.size() * 2);
    for (char c : text) {
        if (c == '\n') {
            crlf += '\r';
        }
        crlf += c;
    }
    return crlf;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const UnitFileFacts facts = velasystemd::ParseUnitFile(text);

    // Names handed on to the generator are always names systemd would load,
    // and a support key is always one the support table can hold.
    RequireUnitNames(facts.wanted_by);
    RequireUnitNames(facts.required_by);
    if (facts.policy_state == velasystemd::PolicyState::PRESENT) {
        if (facts.policy.support_key) {
            Require(velasystemd::IsSupportName(*facts.policy.support_key));
        }
        RequireUnitNames(facts.policy.stay_alive_targets);
        RequireUnitNames(facts.policy.stay_alive_units);
        RequireUnitNames(facts.policy.packed_in);
    }

    // A carriage return is a blank around a line: a file written with "\r\n"
    // line ends means the same.
    Require(SameFacts(facts, velasystemd::ParseUnitFile(WithCarriageReturns(text))));
    return 0;
}
