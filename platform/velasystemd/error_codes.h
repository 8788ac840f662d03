// Failure codes of the unit library beyond the five the core library names.
// They stay inside the unit library's range (0x700-0x70F); callers compare
// none of them, they only tell a reader of the error state what went wrong.
#pragma once

#include "velacore/error_state.h"

namespace velasystemd {

constexpr int ERR_UNIT_MASKED = 0x705;         // a masked unit cannot be enabled
constexpr int ERR_NOTHING_TO_INSTALL = 0x706;  // static unit or bare template: no links to make
constexpr int ERR_WRITE = 0x707;               // a directory, link or file cannot be written
constexpr int ERR_BAD_ARGUMENT = 0x708;        // a name, key or value cannot be written as given

}  // namespace velasystemd
