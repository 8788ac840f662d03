// Reading the two kinds of text the platform keeps its policy in: unit files
// and the support table. Pure: works on the text alone, so that it can be fuzzed.
//
// Unit files follow systemd's syntax: blanks around lines, keys and values are
// dropped; lines whose first non-blank character is '#' or ';' are comments; a
// line ending in '\' continues on the next one (the '\' becomes a blank,
// comment lines inside a continuation are skipped); "[Name]" opens a section,
// which may be opened again, its settings adding up; settings before the first
// section are ignored. A later value of a key replaces an earlier one, a list
// value adds to the list, an empty value resets the key (a list to empty). A
// line starting with '[' but not ending with ']' makes the whole file invalid,
// as systemd refuses it.
//
// [X-Vela] keys: SupportKey=NAME (a support name), DefaultEnable=yes|no,
// CheckReason=yes|no and the unit-name lists StayAliveWhenIsolateToTargets=,
// StayAliveUnitsWhenIsolated=, PackedIn=. The section is malformed when it
// holds a line without '=', an empty or unknown key, a flag other than "yes"
// or "no", a SupportKey that is no support name, or a list element that is no
// valid unit name. A present section with keys missing is well formed.
//
// [Install] keys WantedBy= and RequiredBy= are unit-name lists whose invalid
// elements are skipped, as systemd skips them; everything else is ignored.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velasystemd {

enum class PolicyState { ABSENT, PRESENT, MALFORMED };

// The name lists a unit file holds.
enum class NameList : uint8_t {
    STAY_ALIVE_TARGETS,  // StayAliveWhenIsolateToTargets
    STAY_ALIVE_UNITS,    // StayAliveUnitsWhenIsolated
    PACKED_IN,
    WANTED_BY,
    REQUIRED_BY,
};

// What a unit file says, packed into one string: the model keeps one per unit
// file through every fork of the run, so each costs one small allocation.
class UnitFacts {
  public:
    enum Flag : uint8_t {
        VALID = 1,
        POLICY_PRESENT = 2,
        POLICY_MALFORMED = 4,
        DEFAULT_ENABLE = 8,
        CHECK_REASON = 16,
        HAS_SUPPORT_KEY = 32,
    };
    // Field 0 is the support key, fields 1 to 5 the lists in NameList order,
    // each ended by '\n', names separated by ' ': neither occurs in a name.
    static constexpr size_t FIELD_COUNT = 6;

    UnitFacts() = default;  // the facts of a file that cannot be read
    UnitFacts(uint8_t flags, const std::string (&fields)[FIELD_COUNT]);

    bool valid() const { return flags_ & VALID; }
    PolicyState policy_state() const;
    bool default_enable() const { return flags_ & DEFAULT_ENABLE; }
    bool check_reason() const { return flags_ & CHECK_REASON; }
    std::optional<std::string> support_key() const;
    std::vector<std::string> Names(NameList list) const;
    // True when the file names a WantedBy= or RequiredBy= target.
    bool HasInstallTargets() const;
    bool operator==(const UnitFacts& other) const {
        return flags_ == other.flags_ && text_ == other.text_;
    }
    bool operator<(const UnitFacts& other) const {
        return flags_ != other.flags_ ? flags_ < other.flags_ : text_ < other.text_;
    }

  private:
    std::string_view Field(size_t index) const;

    uint8_t flags_ = 0;
    std::string text_;
};

// The facts held in the unit file text `text`.
UnitFacts ParseUnitFile(std::string_view text);

// Support name -> supported.
using SupportTable = std::map<std::string, bool>;

// True for a usable support name: printable ASCII, no blank, no '='.
bool IsSupportName(std::string_view name);

// The support table: lines NAME=yes or NAME=no, blanks around both allowed,
// '#' comments and empty lines ignored. Any other line, or a name given as yes
// and as no, rejects the whole table (nothing, as for an unreadable one).
std::optional<SupportTable> ParseSupportTable(std::string_view text);

}  // namespace velasystemd
