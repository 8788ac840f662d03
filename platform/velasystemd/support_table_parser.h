// Parsing the support table, which says which support keys this machine
// supports. Pure: works on the text alone, so that it can be fuzzed.
//
// One entry per line, NAME=yes or NAME=no, with blanks allowed around NAME
// and the value. Empty lines and lines whose first non-blank character is '#'
// are ignored. NAME is a support name (below); the value is exactly "yes" or
// "no".
//
// Any other line, or a NAME given once as yes and once as no, rejects the
// whole table. A table that cannot be understood is treated like one that
// cannot be read: support queries fail and nothing is masked by accident.
// Repeating an entry with the same value is harmless.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace velasystemd {

// Support name -> supported.
using SupportTable = std::map<std::string, bool>;

// True for a usable support name: one or more printable ASCII characters,
// none of them a blank or '='.
bool IsSupportName(std::string_view name);

// The table held in `text`, or nothing when a line is malformed.
std::optional<SupportTable> ParseSupportTable(std::string_view text);

}  // namespace velasystemd
