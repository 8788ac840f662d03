// Which strings are unit names, and what the name tells about the unit.

#include <gtest/gtest.h>

#include "unit_name.h"

namespace {

using namespace velasystemd;

TEST(UnitName, ValidityFollowsSystemdRules) {
    static const struct {
        std::string name;
        bool valid;
    } cases[] = {
        {"a.service", true},
        {"dev-sda1.device", true},
        {"x:y_z\\x2d.mount", true},
        {"getty@.service", true},
        {"getty@tty1.service", true},
        {"foo@a@b.service", true},
        {"a.b.c.timer", true},
        {std::string(247, 'n') + ".service", true},
        {std::string(248, 'n') + ".service", false},
        {"", false},
        {".service", false},
        {"@x.service", false},
        {"noext", false},
        {"a.wants", false},
        {"a.service.d", false},
        {"a.Service", false},
        {"a b.service", false},
        {"a/b.service", false},
        {"caf\xc3\xa9.service", false},
    };
    for (const auto& c : cases) EXPECT_EQ(IsValidUnitName(c.name), c.valid) << c.name;
}

TEST(UnitName, TypeIsTheLastSuffix) {
    EXPECT_EQ(UnitTypeOf("a.b.target"), "target");
    EXPECT_EQ(UnitTypeOf("ntpd"), "");
    EXPECT_EQ(UnitTypeOf("x."), "");
}

TEST(UnitName, NormalizingAddsServiceOnlyWithoutAKnownType) {
    EXPECT_EQ(NormalizedUnitName("ntpd"), "ntpd.service");
    EXPECT_EQ(NormalizedUnitName("net.conf"), "net.conf.service");
    EXPECT_EQ(NormalizedUnitName("x.socket"), "x.socket");
    EXPECT_EQ(NormalizedUnitName("x.service"), "x.service");
}

TEST(UnitName, TemplatesAndInstances) {
    EXPECT_TRUE(IsTemplateName("getty@.service"));
    EXPECT_FALSE(IsInstanceName("getty@.service"));
    EXPECT_TRUE(IsInstanceName("getty@tty1.service"));
    EXPECT_FALSE(IsTemplateName("getty@tty1.service"));
    EXPECT_FALSE(IsInstanceName("getty.service"));
    EXPECT_EQ(TemplateOfInstance("getty@tty1.service"), "getty@.service");
    EXPECT_EQ(TemplateOfInstance("a@b.c.service"), "a@.service");
}

}  // namespace
