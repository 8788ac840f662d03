// The five per-unit policy queries: answers, and the failure codes that tell
// a unit without policy from a broken one.

#include <gtest/gtest.h>

#include <functional>

#include "unit_model.h"
#include "unit_tree.h"

namespace velasystemd_test {
namespace {

using Names = std::vector<std::string>;

class PolicyQuery : public UnitTree {
  protected:
    void Unit(const std::string& name, const std::string& text) {
        Write(std::string(VENDOR_UNITS) + "/" + name, text);
    }
    // Supported answer of IsSupportGet, or the error code after a failure.
    int SupportOf(velasystemd::UnitModel& model, const std::string& unit) {
        ClearErrorState();
        bool supported = false;
        if (!model.IsSupportGet(unit, supported)) return VLIBCErrGet();
        return supported ? 1 : 0;
    }
};

TEST_F(PolicyQuery, SupportFollowsTheTableAndFailureCodesTellTheCasesApart) {
    Write(SUPPORT_TABLE, "# machine\nwifi=yes\nbt=no\n");
    Unit("w.service", UnitText("SupportKey=wifi\n"));
    Unit("b.service", UnitText("SupportKey=bt\n"));
    Unit("n.service", UnitText("SupportKey=nfc\n"));
    Unit("any.service", UnitText("DefaultEnable=yes\n"));
    Unit("plain.service", UnitText(""));
    Unit("bad.service", UnitText("SupportKey=wifi\nDefaultEnable=sometimes\n"));
    Unit("broken.service", "[Unit\n[X-Vela]\nSupportKey=wifi\n");
    Unit("huge.service", UnitText("SupportKey=wifi\n") + std::string(5 << 20, '#'));
    Link(std::string(ETC_UNITS) + "/masked-only.service", "/dev/null");
    velasystemd::UnitModel model(root_);
    EXPECT_EQ(SupportOf(model, "w.service"), 1);
    EXPECT_EQ(SupportOf(model, "b.service"), 0);
    EXPECT_EQ(SupportOf(model, "n.service"), 0) << "a name missing from the table is unsupported";
    EXPECT_EQ(SupportOf(model, "any.service"), 1) << "no SupportKey: supported everywhere";
    EXPECT_EQ(SupportOf(model, "plain.service"), VLIBC_ERR_NO_POLICY);
    EXPECT_EQ(SupportOf(model, "masked-only.service"), VLIBC_ERR_NO_POLICY);
    EXPECT_EQ(SupportOf(model, "missing.service"), VLIBC_ERR_NO_SUCH_UNIT);
    EXPECT_EQ(SupportOf(model, "not a unit"), VLIBC_ERR_NO_SUCH_UNIT);
    EXPECT_EQ(SupportOf(model, "bad.service"), VLIBC_ERR_UNIT_UNREADABLE);
    EXPECT_EQ(SupportOf(model, "broken.service"), VLIBC_ERR_UNIT_UNREADABLE);
    EXPECT_EQ(SupportOf(model, "huge.service"), VLIBC_ERR_UNIT_UNREADABLE);
}

TEST_F(PolicyQuery, UnreadableTableIsAFailureNotAnAnswer) {
    Unit("w.service", UnitText("SupportKey=wifi\n"));
    Unit("any.service", UnitText("PackedIn=a.target\n"));
    velasystemd::UnitModel missing(root_);
    EXPECT_EQ(SupportOf(missing, "w.service"), VLIBC_ERR_SUPPORT_TABLE);
    EXPECT_EQ(SupportOf(missing, "any.service"), 1) << "no key, no table needed";
    Write(SUPPORT_TABLE, "wifi=no\nbroken line\n");
    velasystemd::UnitModel malformed(root_);
    EXPECT_EQ(SupportOf(malformed, "w.service"), VLIBC_ERR_SUPPORT_TABLE);
}

TEST_F(PolicyQuery, EveryQueryFailsAlikeWithoutPolicy) {
    Unit("plain.target", UnitText(""));
    velasystemd::UnitModel model(root_);
    bool flag = true;
    Names names{"untouched"};
    const std::function<bool()> queries[] = {
        [&] { return model.IsDefaultEnableGet("plain.target", flag); },
        [&] { return model.PackedInGet("plain.target", names); },
        [&] { return model.BelongsToGet("plain.target", names); },
        [&] { return model.TargetCarriesGet("plain.target", names); },
    };
    for (const auto& query : queries) {
        ClearErrorState();
        EXPECT_FALSE(query());
        EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_NO_POLICY);
    }
    EXPECT_TRUE(flag);
    EXPECT_EQ(names, Names{"untouched"});
}

TEST_F(PolicyQuery, ListsAndFlagsComeFromTheSection) {
    Unit("t.target", UnitText("StayAliveUnitsWhenIsolated=a.service\nStayAliveUnitsWhenIsolated=b.service\n"
                              "DefaultEnable=yes\n"));
    Unit("a.service", UnitText("StayAliveWhenIsolateToTargets=t.target x.target\nPackedIn=p.target\n"));
    velasystemd::UnitModel model(root_);
    Names units, targets, packs{"stale"};
    bool enabled = false;
    ASSERT_TRUE(model.TargetCarriesGet("t.target", units));
    ASSERT_TRUE(model.BelongsToGet("a.service", targets));
    ASSERT_TRUE(model.PackedInGet("a.service", packs));
    ASSERT_TRUE(model.IsDefaultEnableGet("t.target", enabled));
    EXPECT_EQ(units, (Names{"a.service", "b.service"}));
    EXPECT_EQ(targets, (Names{"t.target", "x.target"}));
    EXPECT_EQ(packs, Names{"p.target"});
    EXPECT_TRUE(enabled);
    ASSERT_TRUE(model.IsDefaultEnableGet("a.service", enabled));
    EXPECT_FALSE(enabled) << "a present section without the key is not enabled by default";
}

TEST_F(PolicyQuery, FilesAndTableAreReadOncePerModel) {
    Write(SUPPORT_TABLE, "wifi=yes\n");
    Unit("a.service", UnitText("SupportKey=wifi\nPackedIn=old.target\n"));
    velasystemd::UnitModel model(root_);
    Names units;
    ASSERT_TRUE(model.ListUnits(units, ""));
    Unit("a.service", UnitText("SupportKey=wifi\nPackedIn=new.target\n"));
    Names packs;
    ASSERT_TRUE(model.PackedInGet("a.service", packs));
    EXPECT_EQ(packs, Names{"old.target"}) << "the listing parsed the file";
    EXPECT_EQ(SupportOf(model, "a.service"), 1);
    Write(SUPPORT_TABLE, "wifi=no\n");
    EXPECT_EQ(SupportOf(model, "a.service"), 1);
}

}  // namespace
}  // namespace velasystemd_test
