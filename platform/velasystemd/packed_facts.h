// A unit file's facts packed for keeping. The catalog keeps one per unit file
// for the whole run, and every fork copies the page tables of all of them (the
// reason check alone forks once per service), so a kept fact costs one small
// allocation instead of a dozen.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "unit_file_parser.h"

namespace velasystemd {

enum class NameList : uint8_t {
    STAY_ALIVE_TARGETS,  // StayAliveWhenIsolateToTargets
    STAY_ALIVE_UNITS,    // StayAliveUnitsWhenIsolated
    PACKED_IN,
    WANTED_BY,
    REQUIRED_BY,
};

class PackedFacts {
  public:
    // Facts of a file that cannot be read.
    PackedFacts() = default;
    explicit PackedFacts(const UnitFileFacts& facts);

    bool valid() const { return (flags_ & VALID) != 0; }
    PolicyState policy_state() const;
    bool default_enable() const { return (flags_ & DEFAULT_ENABLE) != 0; }
    bool check_reason() const { return (flags_ & CHECK_REASON) != 0; }
    std::optional<std::string> support_key() const;
    std::vector<std::string> Names(NameList list) const;
    // True when the file names a WantedBy= or RequiredBy= target.
    bool HasInstallTargets() const;

  private:
    enum Flag : uint8_t {
        VALID = 1,
        POLICY_PRESENT = 2,
        POLICY_MALFORMED = 4,
        DEFAULT_ENABLE = 8,
        CHECK_REASON = 16,
        HAS_SUPPORT_KEY = 32,
    };

    // Field 0 is the support key, fields 1 to 5 the lists in NameList order.
    std::string_view Field(size_t index) const;

    uint8_t flags_ = 0;
    // The fields, each ended by '\n', list names separated by ' ': neither
    // can occur in a unit name or a support name.
    std::string text_;
};

}  // namespace velasystemd
