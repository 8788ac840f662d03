#include "text_util.h"

namespace velasystemd {

std::string_view StripBlanks(std::string_view text) {
    size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos) return {};
    size_t last = text.find_last_not_of(BLANKS);
    return text.substr(first, last - first + 1);
}

std::vector<std::string> SplitWords(std::string_view text) {
    std::vector<std::string> words;
    size_t start = text.find_first_not_of(BLANKS);
    while (start != std::string_view::npos) {
        size_t end = text.find_first_of(BLANKS, start);
        if (end == std::string_view::npos) end = text.size();
        words.emplace_back(text.substr(start, end - start));
        start = text.find_first_not_of(BLANKS, end);
    }
    return words;
}

}  // namespace velasystemd
