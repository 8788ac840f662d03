// What the fuzz targets share: a check that stops the run, and the same text
// with "\r\n" line ends, which must mean the same to every reader.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#define REQUIRE(condition) ((condition) ? void() : std::abort())

inline std::string WithCarriageReturns(std::string_view text) {
    std::string crlf;
    for (char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return crlf;
}
