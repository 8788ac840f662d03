// Writing drop-in files and linking a shared drop-in into a unit's drop-in
// directory. Paths are taken as given: nothing here depends on the unit tree.
#pragma once

#include <map>
#include <string>

namespace velasystemd {

// Writes `dir` + `file_name` (dir ends with '/', file_name is a plain name):
// a comment line saying the file is generated, "[section]", then one
// "Key=Value" line per setting. Creates `dir` with its parents (0755) and
// replaces a file of that name whole, through a temporary file and a rename.
// False with the error state set (0x708) for text that would not read back as
// written: an empty section or one holding '[' or ']', an empty key or one
// holding a blank or '=', a value ending in '\', any control character; or
// (0x707) when it cannot be written.
bool WriteUnitSection(const std::string& dir, const std::string& file_name,
                      const std::string& section,
                      const std::map<std::string, std::string>& settings);

// Creates `drop_in_dir` (ending with '/') with its parents and the link
// `drop_in_dir` + basename(`target`) -> `target`. A link already pointing at
// `target` is success; anything else in its place is a failure (0x707).
bool LinkIntoDropInDir(const std::string& drop_in_dir, const std::string& target);

}  // namespace velasystemd
