// Parsing a unit file's text into what the platform needs from it: the
// platform policy in the [X-Vela] section and the targets of the [Install]
// section. Pure: works on the text alone, so that it can be fuzzed.
//
// The syntax is systemd's: blanks around lines, keys and values are dropped;
// lines whose first non-blank character is '#' or ';' are comments; a line
// ending in '\' continues on the next one (the '\' becomes a blank, comment
// lines inside a continuation are skipped); "[Name]" opens a section, and a
// section may be opened more than once, its settings adding up; settings
// before the first section are ignored. A key may repeat: a later value
// replaces an earlier one, a list value adds to the list, and an empty value
// resets the key to its default (for a list: empties it).
//
// A line that starts with '[' but does not end with ']' makes the whole file
// invalid, as systemd refuses to load such a file.
//
// [X-Vela] keys: SupportKey=NAME (a support name, see support_table_parser.h),
// DefaultEnable=yes|no, CheckReason=yes|no, and the unit-name lists
// StayAliveWhenIsolateToTargets=, StayAliveUnitsWhenIsolated=, PackedIn=.
// The section is malformed when it holds a line without '=', an empty or
// unknown key, a DefaultEnable or CheckReason value other than "yes" or "no",
// a SupportKey value that is not a support name, or a list element that is
// not a valid unit name. A present section with keys missing is well formed:
// supported, not enabled by default, no reason check, empty lists.
//
// [Install] keys: WantedBy= and RequiredBy=, unit-name lists; elements that
// are not valid unit names are skipped, as systemd skips them, and every other
// key or line is ignored.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velasystemd {

enum class PolicyState { ABSENT, PRESENT, MALFORMED };

// The [X-Vela] section, with its defaults.
struct VelaPolicy {
    std::optional<std::string> support_key;  // unset: supported everywhere
    bool default_enable = false;
    bool check_reason = false;
    std::vector<std::string> stay_alive_targets;  // StayAliveWhenIsolateToTargets
    std::vector<std::string> stay_alive_units;    // StayAliveUnitsWhenIsolated
    std::vector<std::string> packed_in;           // PackedIn
};

struct UnitFileFacts {
    bool valid = true;  // false: unreadable, or refused by systemd's syntax
    PolicyState policy_state = PolicyState::ABSENT;
    VelaPolicy policy;  // meaningful when policy_state is PRESENT
    std::vector<std::string> wanted_by;
    std::vector<std::string> required_by;
};

// The facts held in the unit file text `text`.
UnitFileFacts ParseUnitFile(std::string_view text);

}  // namespace velasystemd
