// Paths the generator forms below a generator directory. Names are used
// verbatim: never escaped, split or validated.
#pragma once

#include <string>

// dir/UNIT.d/, the drop-in directory of a unit, with its trailing slash.
inline std::string DropInDirOf(const std::string& dir, const std::string& unit) {
    return dir + "/" + unit + ".d/";
}

// dir/TARGET.wants/, with its trailing slash.
inline std::string WantsDirOf(const std::string& dir, const std::string& target) {
    return dir + "/" + target + ".wants/";
}
