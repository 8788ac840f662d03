// Reading the support table, and refusing it whole when a line is not understood.

#include <gtest/gtest.h>

#include "support_table_parser.h"

namespace {

using velasystemd::ParseSupportTable;
using velasystemd::SupportTable;

TEST(SupportTableParser, ReadsYesAndNoEntriesOrNone) {
    auto table = ParseSupportTable(
        "# support of this machine\n\nwifi=yes\n  bt = no  \r\n\t# indented comment\nnfc=yes\nnfc=yes");
    ASSERT_TRUE(table.has_value());
    EXPECT_EQ(*table, (SupportTable{{"bt", false}, {"nfc", true}, {"wifi", true}}));
    table = ParseSupportTable("# nothing supported\n\n");
    ASSERT_TRUE(table.has_value());
    EXPECT_TRUE(table->empty());
}

TEST(SupportTableParser, RejectsTheWholeTableForOneBadLine) {
    static const struct {
        const char* name;
        const char* line;
    } cases[] = {
        {"no assignment", "wifi"},
        {"empty name", "=yes"},
        {"value not yes/no", "wifi=true"},
        {"value in wrong case", "wifi=YES"},
        {"empty value", "wifi="},
        {"name with blank", "wi fi=yes"},
        {"trailing comment", "wifi=yes # on"},
        {"contradiction", "bt=no\nbt=yes"},
    };
    for (const auto& c : cases) {
        std::string text = std::string("gps=yes\n") + c.line + "\nlte=no\n";
        EXPECT_FALSE(ParseSupportTable(text).has_value()) << c.name;
    }
}

}  // namespace
