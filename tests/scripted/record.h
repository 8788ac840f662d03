// The call record of the scripted platform: formatting a call as one line and
// appending it so that lines of concurrent processes never interleave.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace scripted {

// One argument as the record writes it: verbatim, with control characters as
// \xHH so that a call always stays on one line.
std::string FormatText(const std::string& text);

// A C-string argument: "null" for a null pointer.
std::string FormatText(const char* text);

// A settings map: "{Key=Value, Key=Value}" in key order.
std::string FormatSettings(const std::map<std::string, std::string>& settings);

// "Name(arg, arg)" from already formatted arguments.
std::string FormatCall(const char* name, const std::vector<std::string>& args);

// Appends "<pid> text\n" to the open record `fd` with a single write(); does
// nothing when `fd` is negative.
void AppendRecordLine(int fd, const std::string& text);

}  // namespace scripted
