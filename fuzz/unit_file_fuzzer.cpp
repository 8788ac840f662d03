// Fuzzes the unit-file parser: whatever a unit file holds, parsing ends, every
// name it hands on is one systemd would load, and "\r\n" line ends change nothing.
#include <cstdint>

#include "fuzz_support.h"
#include "unit_file.h"
#include "unit_name.h"

using velasystemd::NameList;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const velasystemd::UnitFacts facts = velasystemd::ParseUnitFile(text);
    REQUIRE(facts == velasystemd::ParseUnitFile(WithCarriageReturns(text)));
    for (NameList list : {NameList::STAY_ALIVE_TARGETS, NameList::STAY_ALIVE_UNITS,
                          NameList::PACKED_IN, NameList::WANTED_BY, NameList::REQUIRED_BY}) {
        for (const std::string& name : facts.Names(list)) REQUIRE(velasystemd::IsValidUnitName(name));
    }
    bool present = facts.policy_state() == velasystemd::PolicyState::PRESENT;
    if (present && facts.support_key()) REQUIRE(velasystemd::IsSupportName(*facts.support_key()));
    return 0;
}
