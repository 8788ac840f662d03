// Reading the [X-Vela] policy and the [Install] targets out of unit file text.

#include <gtest/gtest.h>

#include "unit_file_parser.h"

namespace {

using velasystemd::ParseUnitFile;
using velasystemd::PolicyState;
using velasystemd::UnitFileFacts;
using Names = std::vector<std::string>;

TEST(UnitFileParser, ReadsEveryPolicyKey) {
    UnitFileFacts facts = ParseUnitFile(
        "[Unit]\nDescription=x\n[X-Vela]\nSupportKey=feature.wifi\nDefaultEnable=yes\n"
        "CheckReason=yes\nStayAliveWhenIsolateToTargets=rescue.target\n"
        "StayAliveUnitsWhenIsolated=a.service b.socket\nPackedIn=p.target\n");
    ASSERT_TRUE(facts.valid);
    ASSERT_EQ(facts.policy_state, PolicyState::PRESENT);
    EXPECT_EQ(facts.policy.support_key.value_or("(unset)"), "feature.wifi");
    EXPECT_TRUE(facts.policy.default_enable);
    EXPECT_TRUE(facts.policy.check_reason);
    EXPECT_EQ(facts.policy.stay_alive_targets, Names{"rescue.target"});
    EXPECT_EQ(facts.policy.stay_alive_units, (Names{"a.service", "b.socket"}));
    EXPECT_EQ(facts.policy.packed_in, Names{"p.target"});
}

TEST(UnitFileParser, EmptySectionIsPresentAndLookalikesAreNot) {
    UnitFileFacts empty = ParseUnitFile("[X-Vela]\n# nothing set\n");
    EXPECT_EQ(empty.policy_state, PolicyState::PRESENT);
    EXPECT_FALSE(empty.policy.support_key.has_value());
    for (const char* text : {"[Unit]\nSupportKey=x\n", "SupportKey=x\n[Unit]\n", "[x-vela]\nA=b\n",
                             "[X-Vela-Extra]\nA=b\n", "# [X-Vela]\n", ""}) {
        EXPECT_EQ(ParseUnitFile(text).policy_state, PolicyState::ABSENT) << text;
    }
}

TEST(UnitFileParser, FollowsUnitFileSyntax) {
    UnitFileFacts facts = ParseUnitFile(
        "  [X-Vela]  \n"
        "; a comment\n"
        "  PackedIn  =  a.target \\\n"
        "# comment lines inside a continuation are skipped\n"
        "    b.target\n"
        "PackedIn=c.target\r\n"
        "[Unit]\n"
        "PackedIn=not-policy\n"
        "[X-Vela]\n"
        "PackedIn=d.target\n");
    ASSERT_EQ(facts.policy_state, PolicyState::PRESENT);
    EXPECT_EQ(facts.policy.packed_in, (Names{"a.target", "b.target", "c.target", "d.target"}));
}

TEST(UnitFileParser, LaterValuesReplaceAndEmptyValuesReset) {
    UnitFileFacts facts = ParseUnitFile(
        "[X-Vela]\nSupportKey=a\nSupportKey=b\nDefaultEnable=yes\nDefaultEnable=\n"
        "PackedIn=x.target\nPackedIn=\nPackedIn=y.target\n"
        "[Install]\nWantedBy=m.target\nWantedBy=\nWantedBy=n.target\n");
    EXPECT_EQ(facts.policy.support_key.value_or("(unset)"), "b");
    EXPECT_FALSE(facts.policy.default_enable);
    EXPECT_EQ(facts.policy.packed_in, Names{"y.target"});
    EXPECT_EQ(facts.wanted_by, Names{"n.target"});
}

TEST(UnitFileParser, MalformedPolicySections) {
    static const struct {
        const char* name;
        const char* section;
    } cases[] = {
        {"line without =", "DefaultEnable\n"},
        {"empty key", "=yes\n"},
        {"unknown key", "SupportKeys=a\n"},
        {"key in wrong case", "supportkey=a\n"},
        {"boolean not yes/no", "DefaultEnable=true\n"},
        {"boolean in wrong case", "CheckReason=Yes\n"},
        {"support name with blank", "SupportKey=a b\n"},
        {"support name with =", "SupportKey=a=b\n"},
        {"list element not a unit", "PackedIn=x.target bogus\n"},
        {"list element with unknown type", "StayAliveWhenIsolateToTargets=x.wants\n"},
        {"bad line after good ones", "PackedIn=x.target\nDefaultEnable=maybe\n"},
    };
    for (const auto& c : cases) {
        UnitFileFacts facts = ParseUnitFile(std::string("[X-Vela]\n") + c.section + "[X-Vela]\n");
        EXPECT_EQ(facts.policy_state, PolicyState::MALFORMED) << c.name;
        EXPECT_TRUE(facts.valid) << c.name;
    }
}

TEST(UnitFileParser, BrokenSectionHeaderInvalidatesTheFile) {
    EXPECT_FALSE(ParseUnitFile("[Unit\nDescription=x\n").valid);
    EXPECT_FALSE(ParseUnitFile("[X-Vela]\nPackedIn=a.target\n[\n").valid);
    EXPECT_TRUE(ParseUnitFile("[Unit]\nDescription=[x\nLine without assignment\n").valid);
}

TEST(UnitFileParser, InstallTargetsSkipInvalidNames) {
    UnitFileFacts facts = ParseUnitFile(
        "[Install]\nWantedBy=multi-user.target %i.target\nRequiredBy=a.target\n"
        "RequiredBy=b.target\nAlias=x.service\nno assignment here\n");
    EXPECT_EQ(facts.policy_state, PolicyState::ABSENT);
    EXPECT_EQ(facts.wanted_by, Names{"multi-user.target"});
    EXPECT_EQ(facts.required_by, (Names{"a.target", "b.target"}));
}

}  // namespace
