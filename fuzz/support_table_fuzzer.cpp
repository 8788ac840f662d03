// Fuzzes the support-table parser: whatever text the table holds, parsing
// ends, and a table it accepts says exactly what its lines say.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "support_table_parser.h"

namespace {

using velasystemd::SupportTable;

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// The table written back as text, one "NAME=yes|no" line per entry.
std::string Serialize(const SupportTable& table) {
    std::string text;
    for (const auto& [name, supported] : table) {
        text += name + (supported ? "=yes\n" : "=no\n");
    }
    return text;
}

std::string WithCarriageReturns(std::string_view text) {
    std::string crlf;
    crlf.reserve(text.size() * 2);
    for (char c : text) {
        if (c == '\n') {
            crlf += '\r';
        }
        crlf += c;
    }
    return crlf;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::optional<SupportTable> table = velasystemd::ParseSupportTable(text);

    // "\r\n" line ends change nothing, accepted or not.
    const std::optional<SupportTable> crlfTable = velasystemd::ParseSupportTable(WithCarriageReturns(text));
    Require(table.has_value() == crlfTable.has_value());
    if (!table) {
        return 0;
    }
    Require(*table == *crlfTable);

    // Every name is a usable support name, and the table written back reads
    // as the same table.
    for (const auto& entry : *table) {
        Require(velasystemd::IsSupportName(entry.first));
    }
    const std::optional<SupportTable> again = velasystemd::ParseSupportTable(Serialize(*table));
    Require(again.has_value() && *again == *table);
    return 0;
}
