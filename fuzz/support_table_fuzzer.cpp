// Fuzzes the support-table parser: whatever the table holds, parsing ends, "\r\n"
// line ends change nothing, and an accepted table written back reads the same.
#include <cstdint>

#include "fuzz_support.h"
#include "unit_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto table = velasystemd::ParseSupportTable(text);
    REQUIRE(table == velasystemd::ParseSupportTable(WithCarriageReturns(text)));
    if (!table) return 0;
    std::string written;
    for (const auto& [name, supported] : *table) {
        REQUIRE(velasystemd::IsSupportName(name));
        written += name + (supported ? "=yes\n" : "=no\n");
    }
    REQUIRE(velasystemd::ParseSupportTable(written) == table);
    return 0;
}
