// The name rules and the two parsers, case by case.
#include <gtest/gtest.h>

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
    EXPECT_EQ(UnitTypeOf("a.b.target"), "target");
    EXPECT_EQ(UnitTypeOf("a"), "");
    EXPECT_TRUE(IsTemplateName("getty@.service") && !IsTemplateName("getty@tty1.service"));
    EXPECT_TRUE(IsInstanceName("getty@tty1.service") && !IsInstanceName("getty@.service"));
    EXPECT_EQ(TemplateOfInstance("getty@tty1@x.service"), "getty@.service");
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
    const struct {
        const char* text;
        const char* facts;
    } cases[] = {
        {"[Unit]\nDescription=x\n", "absent"},
        {"[X-Vela]\n", "present"},
        {"[X-Vela]\nSupportKey=wifi\nDefaultEnable=yes\nCheckReason=yes\nPackedIn=p.target\n"
         "StayAliveWhenIsolateToTargets=r.target\nStayAliveUnitsWhenIsolated=u.service\n",
         "present default reason key=wifi stay=r.target, carries=u.service, packed=p.target,"},
        {" # c\n; c\n\t[X-Vela] \r\n  PackedIn = a.target\tb.target  \r\n", "present packed=a.target,b.target,"},
        {"[X-Vela]\nPackedIn=a.target \\\n# skipped\n b.target\n", "present packed=a.target,b.target,"},
        {"[X-Vela]\nPackedIn=a.target\nPackedIn=b.target\n[Unit]\n[X-Vela]\nPackedIn=c.target\n",
         "present packed=a.target,b.target,c.target,"},
        {"[X-Vela]\nPackedIn=a.target\nPackedIn=\nDefaultEnable=yes\nDefaultEnable=\nSupportKey=k\nSupportKey=\n",
         "present"},
        {"PackedIn=a.target\n[Unit]\nPackedIn=b.target\n[X-Vela]\n", "present"},
        {"[X-Vela]\nPackedIn\n", "malformed"},
        {"[X-Vela]\n=a.target\n", "malformed"},
        {"[X-Vela]\nPacked=a.target\n", "malformed"},
        {"[X-Vela]\nDefaultEnable=1\n", "malformed"},
        {"[X-Vela]\nSupportKey=a b\n", "malformed"},
        {"[X-Vela]\nPackedIn=a.target bad\n", "malformed packed=a.target,"},
        {"[X-Vela]\nPackedIn=a.target\n[Install\n", "invalid absent"},
        {"[Install]\nWantedBy=a.target bad b.target\nRequiredBy=c.target\nAlso=d.service\nbare\n",
         "absent wanted=a.target,b.target, required=c.target,"},
    };
    for (const auto& c : cases) EXPECT_EQ(Describe(ParseUnitFile(c.text)), c.facts) << c.text;
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
