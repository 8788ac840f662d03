// Small text helpers shared by the two parsers.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velasystemd {

// What systemd treats as blank around keys, values and list elements.
inline constexpr std::string_view BLANKS = " \t\n\r";

// `text` without leading and trailing blanks.
std::string_view StripBlanks(std::string_view text);

// The blank-separated words of `text`, in order.
std::vector<std::string> SplitWords(std::string_view text);

// Calls `visit` with each line of `text`, without its '\n'.
template <typename Visit>
void ForEachLine(std::string_view text, Visit visit) {
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        visit(text.substr(start, end - start));
        start = end + 1;
    }
}

}  // namespace velasystemd
