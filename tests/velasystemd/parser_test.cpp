// The name rules and the two parsers, case by case.
#include <gtest/gtest.h>

#include <fstream>

#include "unit_file.h"
#include "unit_name.h"

namespace velasystemd {
namespace {

TEST(UnitName, ValidNamesAreThoseSystemdLoads) {
    for (std::string name : std::initializer_list<std::string>{"a.service", "a@.service", "a@b@c.service", "A-b_c:d\\x2d.target",
                             std::string(247, 'a') + ".service"}) {
        EXPECT_TRUE(IsValidUnitName(name)) << name;
    }
    for (std::string name : std::initializer_list<std::string>{"", ".service", "a", "a.conf", "@a.service", "a b.service", "a/b.service",
                             "a.service~", "\xc3\xa9.service", std::string(248, 'a') + ".service"}) {
        EXPECT_FALSE(IsValidUnitName(name)) << name;
    }
    EXPECT_EQ(NormalizedUnitName("ntpd"), "ntpd.service");
    EXPECT_EQ(NormalizedUnitName("a.socket"), "a.socket");
    EXPECT_EQ(NormalizedUnitName("a.conf"), "a.conf.service");
    EXPECT_EQ(UnitTypeOf("a"), "");
}

// The facts in one line: validity, policy state, flags, support key, lists.
std::string Describe(const UnitFacts& facts) {
    const char* states[] = {"absent", "present", "malformed"};
    std::string text = facts.valid() ? "" : "invalid ";
    text += states[static_cast<int>(facts.policy_state())];
    if (facts.default_enable()) text += " default";
    if (facts.check_reason()) text += " reason";
    if (facts.support_key()) text += " key=" + *facts.support_key();
    const char* lists[] = {" stay=", " carries=", " packed=", " wanted=", " required="};
    for (int list = 0; list < 5; ++list) {
        std::string names;
        for (const std::string& name : facts.Names(static_cast<NameList>(list))) names += name + ",";
        if (!names.empty()) text += lists[list] + names;
    }
    return text;
}

TEST(UnitFileParser, ReadsPolicyAndInstallSectionsAsSystemdWould) {
    std::ifstream cases(CASES_DIR "/unit_files.txt");
    std::string text;
    int count = 0;
    for (std::string line; std::getline(cases, line);) {
        bool crlf = line.size() >= 2 && line.compare(line.size() - 2, 2, "\\r") == 0;
        if (line.rfind("=> ", 0) != 0) {
            text += crlf ? line.substr(0, line.size() - 2) + "\r\n" : line + "\n";
            continue;
        }
        EXPECT_EQ(Describe(ParseUnitFile(text)), line.substr(3)) << text;
        text.clear();
        ++count;
    }
    EXPECT_EQ(count, 16);
}

TEST(SupportTableParser, AcceptsOnlyConsistentYesNoLines) {
    auto table = ParseSupportTable("# comment\n\n wifi = yes \r\nnfs=no\nwifi=yes\n");
    ASSERT_TRUE(table);
    EXPECT_EQ(*table, (SupportTable{{"nfs", false}, {"wifi", true}}));
    for (const char* text : {"wifi=maybe\n", "wifi\n", "wifi=yes\nwifi=no\n", "a b=yes\n", "=yes\n",
                             "wifi=YES\n"}) {
        EXPECT_FALSE(ParseSupportTable(text)) << text;
    }
}

}  // namespace
}  // namespace velasystemd
