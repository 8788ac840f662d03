#include "support_table_parser.h"

#include "text_util.h"

namespace velasystemd {
namespace {

constexpr char COMMENT_START = '#';
constexpr char ASSIGNMENT = '=';
constexpr std::string_view SUPPORTED = "yes";
constexpr std::string_view UNSUPPORTED = "no";

// Adds one entry line to `table`; false when the line is not NAME=yes|no or
// contradicts an earlier entry.
bool AddEntry(std::string_view line, SupportTable& table) {
    size_t assignment = line.find(ASSIGNMENT);
    if (assignment == std::string_view::npos) return false;
    std::string_view name = StripBlanks(line.substr(0, assignment));
    std::string_view value = StripBlanks(line.substr(assignment + 1));
    if (!IsSupportName(name)) return false;
    if (value != SUPPORTED && value != UNSUPPORTED) return false;
    bool supported = value == SUPPORTED;
    auto [entry, added] = table.emplace(std::string(name), supported);
    return added || entry->second == supported;
}

}  // namespace

bool IsSupportName(std::string_view name) {
    if (name.empty()) return false;
    for (char c : name) {
        if (c <= ' ' || c > '~' || c == ASSIGNMENT) return false;
    }
    return true;
}

std::optional<SupportTable> ParseSupportTable(std::string_view text) {
    SupportTable table;
    bool understood = true;
    ForEachLine(text, [&](std::string_view raw_line) {
        std::string_view line = StripBlanks(raw_line);
        if (line.empty() || line.front() == COMMENT_START) return;
        understood = understood && AddEntry(line, table);
    });
    if (!understood) return std::nullopt;
    return table;
}

}  // namespace velasystemd
