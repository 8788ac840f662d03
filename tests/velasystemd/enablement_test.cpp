// Enable status as the links in /etc and /run say, and enabling and disabling
// units from within a generator run.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "unit_model.h"
#include "unit_tree.h"

namespace velasystemd_test {
namespace {

namespace fs = std::filesystem;

const std::string ETC = ETC_UNITS;
const std::string RUN = RUN_UNITS;

class Enablement : public UnitTree {
  protected:
    void Unit(const std::string& name, const std::string& text) {
        Write(std::string(VENDOR_UNITS) + "/" + name, text);
    }
    std::string FileOf(const std::string& name) const { return Path(VENDOR_UNITS) + "/" + name; }
    // The result of a call that must fail, as its error code.
    template <typename Call>
    int FailureOf(Call call) {
        ClearErrorState();
        if (call()) return 0;
        return VLIBCErrGet();
    }
};

const char WANTED[] = "WantedBy=multi-user.target\n";

TEST_F(Enablement, StatusComesFromLinksMasksAndInstallSection) {
    Unit("static.service", UnitText(""));
    Unit("disabled.service", UnitText("", WANTED));
    Unit("wanted.service", UnitText("", WANTED));
    Unit("required.service", UnitText("", WANTED));
    Unit("static-linked.service", UnitText(""));
    Unit("masked-etc.service", UnitText("", WANTED));
    Unit("broken.service", "[Install\n");
    Link(ETC + "/multi-user.target.wants/wanted.service", FileOf("wanted.service"));
    Link(RUN + "/x.target.requires/required.service", FileOf("required.service"));
    Link(RUN + "/x.target.wants/static-linked.service", FileOf("static-linked.service"));
    Link(ETC + "/masked-etc.service", "/dev/null");
    Link(RUN + "/masked-run.service", "/dev/null");
    Write(ETC + "/multi-user.target.wants/disabled.service", "a copy is not a link");
    static const struct {
        const char* unit;
        int status;
    } cases[] = {
        {"static.service", 2},        {"disabled.service", 0},   {"wanted.service", 1},
        {"required.service", 1},      {"static-linked.service", 1}, {"masked-etc.service", 3},
        {"masked-run.service", 3},    {"broken.service", -1},    {"missing.service", -1},
    };
    velasystemd::UnitModel model(root_);
    for (const auto& c : cases) EXPECT_EQ(model.EnableStatusGet(c.unit), c.status) << c.unit;
}

TEST_F(Enablement, StatusIsReadAfreshAtEveryCall) {
    Unit("d.service", UnitText("", WANTED));
    Write(ETC + "/a.target.wants/other.service", "");
    velasystemd::UnitModel model(root_);
    EXPECT_EQ(model.EnableStatusGet("d.service"), 0);
    Link(ETC + "/a.target.wants/d.service", FileOf("d.service"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 1) << "new link in a known directory";
    fs::rename(Path(ETC + "/a.target.wants"), Path(ETC + "/b.target.requires"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 1) << "directory renamed";
    fs::remove_all(Path(ETC + "/b.target.requires"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 0) << "directory removed";
    Link(RUN + "/d.service", "/dev/null");
    EXPECT_EQ(model.EnableStatusGet("d.service"), 3) << "mask in a directory that was missing";
    fs::remove(Path(RUN + "/d.service"));
    Link(RUN + "/c.target.wants/d.service", FileOf("d.service"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 1) << "new directory";
    fs::remove_all(Path("/run"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 0) << "whole base removed";
    Link(RUN + "/c.target.wants/d.service", FileOf("d.service"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 1) << "base made again";
}

TEST_F(Enablement, ForkedProcessesEachSeeEveryChange) {
    Unit("p.service", UnitText("", WANTED));
    Unit("c.service", UnitText("", WANTED));
    Write(ETC + "/multi-user.target.wants/.keep", "");
    velasystemd::UnitModel model(root_);
    ASSERT_EQ(model.EnableStatusGet("c.service"), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        bool seen_own = model.Enable("c.service") && model.EnableStatusGet("c.service") == 1;
        // Wait for the parent's change, made after this child started.
        bool seen_parent = false;
        for (int tries = 0; tries < 2000 && !seen_parent; ++tries) {
            seen_parent = model.EnableStatusGet("p.service") == 1;
            if (!seen_parent) usleep(1000);
        }
        _exit(seen_own && seen_parent ? 0 : 1);
    }
    ASSERT_TRUE(model.Enable("p.service"));
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(model.EnableStatusGet("c.service"), 1) << "the child's change, seen by the parent";
}

TEST_F(Enablement, DefaultUnitIsEnabledAtRuntimeOnly) {
    Unit("u.service", UnitText("DefaultEnable=yes\n", "WantedBy=multi-user.target a.target\nRequiredBy=b.target\n"));
    velasystemd::UnitModel model(root_);
    ASSERT_TRUE(model.Enable("u.service"));
    EXPECT_EQ(LinkTarget(RUN + "/multi-user.target.wants/u.service"), FileOf("u.service"));
    EXPECT_EQ(LinkTarget(RUN + "/a.target.wants/u.service"), FileOf("u.service"));
    EXPECT_EQ(LinkTarget(RUN + "/b.target.requires/u.service"), FileOf("u.service"));
    EXPECT_FALSE(Exists(ETC + "/multi-user.target.wants"));
    EXPECT_FALSE(Exists(std::string(CHANGE_MARKS) + "/u.service"));
    EXPECT_FALSE(model.IsEnableStatusChanged("u.service"));
    EXPECT_EQ(model.EnableStatusGet("u.service"), 1);
    EXPECT_TRUE(model.Enable("u.service")) << "identical links are no failure";
}

TEST_F(Enablement, OtherUnitIsEnabledPersistentlyAndMarked) {
    Unit("n.service", UnitText("DefaultEnable=no\n", WANTED));
    Unit("getty@.service", UnitText("", "WantedBy=getty.target\n"));
    velasystemd::UnitModel model(root_);
    ASSERT_TRUE(model.Enable("n.service"));
    EXPECT_EQ(LinkTarget(ETC + "/multi-user.target.wants/n.service"), FileOf("n.service"));
    EXPECT_FALSE(Exists(RUN + "/multi-user.target.wants"));
    EXPECT_TRUE(Exists(std::string(CHANGE_MARKS) + "/n.service"));
    EXPECT_TRUE(model.IsEnableStatusChanged("n.service"));
    ASSERT_TRUE(model.Enable("getty@tty1.service"));
    EXPECT_EQ(LinkTarget(ETC + "/getty.target.wants/getty@tty1.service"), FileOf("getty@.service"));
}

TEST_F(Enablement, RefusesUnitsThatCannotBeEnabled) {
    Unit("static.service", UnitText("DefaultEnable=yes\n"));
    Unit("masked.service", UnitText("", WANTED));
    Link(ETC + "/masked.service", "/dev/null");
    Unit("bad.service", UnitText("DefaultEnable=1\n", WANTED));
    Unit("taken.service", UnitText("", WANTED));
    Link(ETC + "/multi-user.target.wants/taken.service", "/elsewhere/taken.service");
    Unit("t@.service", UnitText("", WANTED));
    velasystemd::UnitModel model(root_);
    auto enable = [&](const char* unit) { return [&model, unit] { return model.Enable(unit); }; };
    EXPECT_EQ(FailureOf(enable("static.service")), 0x706);
    EXPECT_EQ(FailureOf(enable("t@.service")), 0x706);
    EXPECT_EQ(FailureOf(enable("masked.service")), 0x705);
    EXPECT_EQ(FailureOf(enable("missing.service")), VLIBC_ERR_NO_SUCH_UNIT);
    EXPECT_EQ(FailureOf(enable("bad.service")), VLIBC_ERR_UNIT_UNREADABLE);
    EXPECT_EQ(FailureOf(enable("taken.service")), 0x707);
    EXPECT_EQ(LinkTarget(ETC + "/multi-user.target.wants/taken.service"), "/elsewhere/taken.service");
    EXPECT_FALSE(Exists(CHANGE_MARKS)) << "no mark for a failed enabling";
}

TEST_F(Enablement, DisablingRemovesEveryLinkOfTheUnit) {
    Unit("d.service", UnitText("DefaultEnable=yes\n", WANTED));
    Unit("n.service", UnitText("", WANTED));
    Link(ETC + "/multi-user.target.wants/d.service", FileOf("d.service"));
    Link(RUN + "/x.target.requires/d.service", FileOf("d.service"));
    Link(RUN + "/x.target.requires/n.service", FileOf("n.service"));
    Link(ETC + "/multi-user.target.wants/n.service", FileOf("n.service"));
    velasystemd::UnitModel model(root_);
    ASSERT_TRUE(model.Disable("d.service"));
    EXPECT_FALSE(Exists(ETC + "/multi-user.target.wants/d.service"));
    EXPECT_FALSE(Exists(RUN + "/x.target.requires/d.service"));
    EXPECT_TRUE(Exists(RUN + "/x.target.requires/n.service"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 0);
    EXPECT_TRUE(model.IsEnableStatusChanged("d.service")) << "departs from its default";
    ASSERT_TRUE(model.Disable("n.service"));
    EXPECT_EQ(model.EnableStatusGet("n.service"), 0);
    EXPECT_FALSE(model.IsEnableStatusChanged("n.service")) << "back at its default";
    EXPECT_EQ(FailureOf([&] { return model.Disable("missing.service"); }), VLIBC_ERR_NO_SUCH_UNIT);
}

TEST_F(Enablement, ChangeMarkIsReadAsItIsNow) {
    Unit("a.service", UnitText("", WANTED));
    velasystemd::UnitModel model(root_);
    EXPECT_FALSE(model.IsEnableStatusChanged("a.service"));
    Write(std::string(CHANGE_MARKS) + "/a.service", "");
    EXPECT_TRUE(model.IsEnableStatusChanged("a.service"));
    Write("/etc/velasystemd/x.service", "");
    EXPECT_FALSE(model.IsEnableStatusChanged("../x.service"));
}

}  // namespace
}  // namespace velasystemd_test
