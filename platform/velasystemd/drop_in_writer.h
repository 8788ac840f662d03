// Writing drop-in files and linking shared drop-ins into a unit's drop-in
// directory. Paths are taken as given: these operations do not depend on the
// unit tree.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace velasystemd {

// The text of a unit-file drop-in: a comment line saying the file is
// generated, "[section]", then one "Key=Value" line per setting in map order.
// Nothing when the text would not read back as written: an empty section or
// one holding '[' or ']', an empty key or one holding a blank or '=', a value
// ending in '\' (which would continue onto the next line), or any control
// character (a newline among them) anywhere. Pure.
std::optional<std::string> FormatUnitSection(const std::string& section,
                                             const std::map<std::string, std::string>& settings);

// Writes FormatUnitSection(...) to `dir` + `file_name`, creating `dir` and its
// parents (mode 0755) when missing and replacing a file of that name whole.
// `dir` must end with '/'; `file_name` must be a plain name without '/'.
// False with the error state set otherwise, or when the text cannot be made
// or written.
bool WriteUnitSection(const std::string& dir, const std::string& file_name,
                      const std::string& section,
                      const std::map<std::string, std::string>& settings);

// Creates `drop_in_dir` (ending with '/') with its parents and the link
// `drop_in_dir` + basename(`target`) -> `target`. A link already pointing at
// `target` is success; anything else in its place is a failure.
bool LinkIntoDropInDir(const std::string& drop_in_dir, const std::string& target);

}  // namespace velasystemd
