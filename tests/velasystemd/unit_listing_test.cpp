// Which units the model lists and which file each name leads to.

#include <gtest/gtest.h>

#include <stdexcept>

#include "unit_entry.h"
#include "unit_model.h"
#include "unit_tree.h"

namespace velasystemd_test {
namespace {

using Names = std::vector<std::string>;

class UnitListing : public UnitTree {
  protected:
    Names List(const std::string& selector = "") {
        velasystemd::UnitModel model(root_);
        Names units;
        EXPECT_TRUE(model.ListUnits(units, selector));
        return units;
    }
};

TEST_F(UnitListing, ListsValidNamesOnceInByteOrder) {
    for (const char* name : {"b.service", "B.service", "a-b.service", "a.target", "a@.service"}) {
        Write(std::string(VENDOR_UNITS) + "/" + name, UnitText(""));
    }
    Write(std::string(ETC_UNITS) + "/b.service", UnitText(""));
    Write(std::string(LOCAL_UNITS) + "/a.target", UnitText(""));
    for (const char* junk : {"README", "b.service.d/x.conf", "multi-user.target.wants/b.service",
                             "c.service~", "d.conf"}) {
        Write(std::string(ETC_UNITS) + "/" + junk, UnitText(""));
    }
    Write("/run/systemd/generator/g.service", UnitText(""));
    Write("/run/systemd/generator.early/h.service", UnitText(""));
    EXPECT_EQ(List(), (Names{"B.service", "a-b.service", "a.target", "a@.service", "b.service"}));
    EXPECT_EQ(List("target"), Names{"a.target"});
}

TEST_F(UnitListing, TheHighestDirectoryHoldingANameGivesItsPath) {
    Write(std::string(VENDOR_UNITS) + "/a.service", UnitText(""));
    Write(std::string(ETC_UNITS) + "/a.service", UnitText(""));
    Write(std::string(VENDOR_UNITS) + "/b.service", UnitText(""));
    Write(std::string(LOCAL_UNITS) + "/b.service", UnitText(""));
    Write(std::string(RUN_UNITS) + "/b.service", UnitText(""));
    Write("/etc/systemd/c.service", UnitText(""));  // what "../c.service" would reach
    velasystemd::UnitModel model(root_);
    EXPECT_EQ(model.UnitPathGet("a.service"), Path(ETC_UNITS) + "/a.service");
    EXPECT_EQ(model.UnitPathGet("b.service"), Path(RUN_UNITS) + "/b.service");
    EXPECT_THROW(model.UnitPathGet("c.service"), std::runtime_error);
    EXPECT_THROW(model.UnitPathGet("../c.service"), std::runtime_error);
}

TEST_F(UnitListing, SameDirectoryUnderTwoNamesIsScannedOnce) {
    Write(std::string(VENDOR_UNITS) + "/a.service", UnitText(""));
    Link("/lib", "usr/lib");
    Names expected;
    for (const char* directory : {ETC_UNITS, RUN_UNITS, LOCAL_UNITS, VENDOR_UNITS}) {
        expected.push_back(Path(directory));
    }
    EXPECT_EQ(velasystemd::UnitDirectoriesUnder(root_), expected);
}

TEST_F(UnitListing, SeparateLibDirectoryIsScannedLast) {
    Write("/lib/systemd/system/a.service", UnitText(""));
    Write(std::string(VENDOR_UNITS) + "/b.service", UnitText(""));
    EXPECT_EQ(velasystemd::UnitDirectoriesUnder(root_).back(), Path("/lib/systemd/system"));
    EXPECT_EQ(List(), (Names{"a.service", "b.service"}));
}

TEST_F(UnitListing, AliasesResolveButAreNotListed) {
    Write(std::string(VENDOR_UNITS) + "/real.service", UnitText("PackedIn=p.target\n"));
    Link(std::string(ETC_UNITS) + "/alias.service", "../../../usr/lib/systemd/system/real.service");
    Link(std::string(ETC_UNITS) + "/linked.service", "/opt/linked.service");
    Write("/opt/linked.service", UnitText("PackedIn=opt.target\n"));
    Write(std::string(VENDOR_UNITS) + "/linked.service", UnitText("PackedIn=vendor.target\n"));
    velasystemd::UnitModel model(root_);
    Names units;
    ASSERT_TRUE(model.ListUnits(units, ""));
    EXPECT_EQ(units, (Names{"linked.service", "real.service"}));
    Names packs;
    ASSERT_TRUE(model.PackedInGet("alias.service", packs));
    EXPECT_EQ(packs, Names{"p.target"});
    EXPECT_EQ(model.UnitPathGet("linked.service"), Path("/opt/linked.service"));
    ASSERT_TRUE(model.PackedInGet("linked.service", packs));
    EXPECT_EQ(packs, Names{"opt.target"}) << "the linked file, not the vendor file of that name";
}

TEST_F(UnitListing, InstancesWithoutAFileUseTheirTemplate) {
    Write(std::string(VENDOR_UNITS) + "/getty@.service", UnitText("PackedIn=t.target\n"));
    Link(std::string(ETC_UNITS) + "/getty@tty1.service", std::string(VENDOR_UNITS) + "/getty@.service");
    velasystemd::UnitModel model(root_);
    Names units;
    ASSERT_TRUE(model.ListUnits(units, ""));
    EXPECT_EQ(units, (Names{"getty@.service", "getty@tty1.service"}));
    EXPECT_EQ(model.UnitPathGet("getty@tty9.service"), Path(VENDOR_UNITS) + "/getty@.service");
    Names packs;
    EXPECT_TRUE(model.PackedInGet("getty@tty9.service", packs));
    EXPECT_EQ(packs, Names{"t.target"});
}

TEST_F(UnitListing, MasksAreListedAndHideNoFileFromPolicy) {
    Write(std::string(VENDOR_UNITS) + "/m.service", UnitText("PackedIn=p.target\n"));
    Link(std::string(ETC_UNITS) + "/m.service", "/dev/null");
    Link(std::string(RUN_UNITS) + "/only-mask.service", "/dev/null");
    Link(std::string(ETC_UNITS) + "/dangling.service", "/nowhere/dangling.service");
    EXPECT_EQ(List(), (Names{"m.service", "only-mask.service"}));
    velasystemd::UnitModel model(root_);
    EXPECT_EQ(model.UnitPathGet("m.service"), Path(VENDOR_UNITS) + "/m.service");
    Names packs;
    EXPECT_TRUE(model.PackedInGet("m.service", packs));
    EXPECT_EQ(packs, Names{"p.target"});
    EXPECT_THROW(model.UnitPathGet("only-mask.service"), std::runtime_error);
}

TEST_F(UnitListing, UnlistableDirectoryFailsTheListing) {
    Write(std::string(VENDOR_UNITS) + "/a.service", UnitText(""));
    Write(LOCAL_UNITS, "a file where a directory belongs");
    velasystemd::UnitModel model(root_);
    Names units;
    EXPECT_FALSE(model.ListUnits(units, ""));
    EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_LIST_UNITS);
}

TEST_F(UnitListing, ServicesWithReasonAreThoseThatAskForTheCheck) {
    Write(std::string(VENDOR_UNITS) + "/b.service", UnitText("CheckReason=yes\n"));
    Write(std::string(VENDOR_UNITS) + "/a.service", UnitText("CheckReason=yes\n"));
    Write(std::string(VENDOR_UNITS) + "/c.service", UnitText("CheckReason=no\n"));
    Write(std::string(VENDOR_UNITS) + "/d.socket", UnitText("CheckReason=yes\n"));
    Write(std::string(VENDOR_UNITS) + "/e.service", UnitText("CheckReason=yes\nBogus=1\n"));
    Write(std::string(VENDOR_UNITS) + "/f.service", UnitText(""));
    velasystemd::UnitModel model(root_);
    Names services;
    ASSERT_TRUE(model.ListServicesWithReason(services));
    EXPECT_EQ(services, (Names{"a.service", "b.service"}));
}

}  // namespace
}  // namespace velasystemd_test
