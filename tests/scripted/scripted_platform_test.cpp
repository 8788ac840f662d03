// The scripted platform answers, fails, records and acts as its header says:
// what the other tests trust it for, and no more.
#include "scripted_platform.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "core_library.h"
#include "unit_library.h"

namespace {

namespace fs = boost::filesystem;
using Names = std::vector<std::string>;

class ScriptedPlatform : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/dev/shm/scripted-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    void Use(const std::string& script) { scripted::Install(script, dir_ + "/record"); }

    static void ExpectErrorState(int code, const std::string& file, int line) {
        EXPECT_EQ(VLIBCErrGet(), code);
        EXPECT_EQ(VLIBCErrorGetFile(), file);
        EXPECT_EQ(VLIBCErrorGetLine(), line);
    }

    static std::string ReadFile(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    std::string dir_;
};

TEST_F(ScriptedPlatform, QueriesAnswerFromTheirTablesAndFailWithNoPolicyOtherwise) {
    Use(R"({"support": {"a.service": false}, "default_enable": {"a.service": true},
            "belongs_to": {"a.service": ["y.target", "x.target", "y.target"]}})");
    bool flag = true;
    ASSERT_TRUE(VELASystemdIsSupportGet("a.service", flag));
    EXPECT_FALSE(flag);
    ASSERT_TRUE(VELASystemdIsDefaultEnableGet("a.service", flag));
    EXPECT_TRUE(flag);
    Names names;
    ASSERT_TRUE(VELASystemdBelongsToGet("a.service", names));
    EXPECT_EQ(names, (Names{"y.target", "x.target", "y.target"})) << "as scripted, duplicates kept";
    EXPECT_FALSE(VELASystemdIsSupportGet("b.service", flag));
    ExpectErrorState(0x700, "scripted", 0);
    EXPECT_FALSE(VELASystemdPackedInGet("a.service", names));
    EXPECT_EQ(VLIBCErrGet(), 0x700);
    Names listed;
    EXPECT_TRUE(VELASystemdListUnits(listed, ""));
    EXPECT_TRUE(VELA::Systemd::ListServicesWithReason(listed));
    EXPECT_TRUE(listed.empty()) << "unscripted listings are empty successes";
}

TEST_F(ScriptedPlatform, AFailureSetsItsOutParameterThenTheErrorState) {
    Use(R"({"support": {"a.service": {"fail": "0x1F", "file": "units.cpp", "line": 12, "sets": false}},
            "units": {"fail": 7, "sets": ["a.service"]}})");
    bool supported = true;
    EXPECT_FALSE(VELASystemdIsSupportGet("a.service", supported));
    EXPECT_FALSE(supported);
    ExpectErrorState(0x1F, "units.cpp", 12);
    Names units;
    EXPECT_FALSE(VELASystemdListUnits(units, ""));
    EXPECT_EQ(units, Names{"a.service"});
    ExpectErrorState(7, "scripted", 0);
}

TEST_F(ScriptedPlatform, EnableStateDefaultsAndAnswers) {
    Use(R"({"enable_status": {"a.service": 2, "b.service": -1}, "changed": {"a.service": true},
            "enable": {"b.service": false, "c.service": {"fail": 5}}, "disable": {"a.service": false}})");
    EXPECT_EQ(VELASystemdEnableStatusGetInGenerator("a.service"), 2);
    EXPECT_EQ(VELASystemdEnableStatusGetInGenerator("b.service"), -1);
    EXPECT_EQ(VELASystemdEnableStatusGetInGenerator("c.service"), 0);
    EXPECT_TRUE(VELA::Systemd::IsEnableStatusChanged("a.service"));
    EXPECT_FALSE(VELA::Systemd::IsEnableStatusChanged("b.service"));
    EXPECT_TRUE(VELASystemdEnableInGenerator("a.service"));
    EXPECT_FALSE(VELASystemdEnableInGenerator("c.service"));
    EXPECT_EQ(VLIBCErrGet(), 5);
    EXPECT_FALSE(VELASystemdEnableInGenerator("b.service"));
    EXPECT_EQ(VLIBCErrGet(), 5) << "a plain false leaves the error state as it was";
    EXPECT_FALSE(VELASystemdDisableInGenerator("a.service"));
    EXPECT_TRUE(VELASystemdDisableInGenerator("b.service"));
}

TEST_F(ScriptedPlatform, NamesTypesAndPathsFollowPlatformRulesUnlessScripted) {
    Use(R"({"type": {"x.target": "Target"},
            "path": {"b.service": "/etc/systemd/system/b.service", "c.service": {"throw": "no file"}}})");
    EXPECT_EQ(VELA::Systemd::NormalizedUnitNameGet("ntpd"), "ntpd.service");
    EXPECT_EQ(VELA::Systemd::NormalizedUnitNameGet("a.timer"), "a.timer");
    EXPECT_EQ(VELA::Systemd::NormalizedUnitNameGet("x.conf"), "x.conf.service");
    EXPECT_EQ(VELA::Systemd::UnitTypeGet("a.service"), "service");
    EXPECT_EQ(VELA::Systemd::UnitTypeGet("x.target"), "Target");
    EXPECT_EQ(VELA::Systemd::UnitPathGet("a.service"), "/usr/lib/systemd/system/a.service");
    EXPECT_EQ(VELA::Systemd::UnitPathGet("b.service"), "/etc/systemd/system/b.service");
    EXPECT_THROW(VELA::Systemd::UnitPathGet("c.service"), std::runtime_error);
}

TEST_F(ScriptedPlatform, RecordsEveryCallOfThisProcessInOrderAndInstallStartsAfresh) {
    Use(R"({"units": ["a.service"]})");
    Names units;
    VELASystemdListUnits(units, "");
    VELA::Systemd::AddUnitSection(dir_ + "/n/a.service.d/", "vela-pack.conf", "Unit",
                                  {{"ReloadPropagatedFrom", "x.target y.target"}, {"PartOf", "x.target y.target"}});
    VLIBCExec("/usr/vela/sbin/velaservicemigrate", "--all", nullptr, nullptr, nullptr);
    bool supported = true;
    VELASystemdIsSupportGet("line\nbreak", supported);
    VLIBCErrGet();
    EXPECT_EQ(scripted::Calls(),
              (Names{"VELASystemdListUnits()",
                     "VELA::Systemd::AddUnitSection(" + dir_ +
                         "/n/a.service.d/, vela-pack.conf, Unit, {PartOf=x.target y.target, "
                         "ReloadPropagatedFrom=x.target y.target})",
                     "VLIBCExec(/usr/vela/sbin/velaservicemigrate, --all, null, null, null)",
                     "VELASystemdIsSupportGet(line\\x0Abreak)", "VLIBCErrGet()"}));
    for (const scripted::Call& call : scripted::RecordedCalls(dir_ + "/record")) {
        EXPECT_EQ(call.pid, getpid()) << call.text;
    }
    Use("{}");
    EXPECT_TRUE(scripted::AllCalls().empty());
}

TEST_F(ScriptedPlatform, ForkedChildrenAppendWholeLinesToTheSameRecord) {
    Use("{}");
    constexpr int CHILDREN = 5;
    constexpr int CALLS_PER_CHILD = 2000;  // enough for torn lines to show
    for (int i = 0; i < CHILDREN; ++i) {
        int pid = VLIBCProcForkEx(187);
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (int call = 0; call < CALLS_PER_CHILD; ++call) {
                VELASystemdEnableStatusGetInGenerator("child-" + std::to_string(i) + ".service");
            }
            _exit(0);
        }
    }
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    EXPECT_EQ(scripted::Calls(), Names(CHILDREN, "VLIBCProcForkEx(187)"));
    std::map<int, std::set<std::string>> textsByPid;
    for (const scripted::Call& call : scripted::RecordedCalls(dir_ + "/record")) {
        textsByPid[call.pid].insert(call.text);
    }
    EXPECT_EQ(scripted::AllCalls().size(), size_t{CHILDREN + CHILDREN * CALLS_PER_CHILD});
    EXPECT_EQ(textsByPid.size(), size_t{CHILDREN + 1});
    for (const auto& [pid, texts] : textsByPid) {
        EXPECT_EQ(texts.size(), 1u) << "pid " << pid << " wrote mixed or broken lines";
    }
}

TEST_F(ScriptedPlatform, ForkFailsOnTheListedCallsOfEachProcessOrOnEveryCall) {
    Use(R"({"fork": {"fail": 16, "file": "proc.cpp", "line": 3, "calls": [2]}})");
    int first = VLIBCProcForkEx(187);
    ASSERT_GE(first, 0);
    if (first == 0) {
        // The child's own first fork is its call 1 and succeeds; its second fails.
        int grandchild = VLIBCProcForkEx(187);
        if (grandchild == 0) {
            _exit(0);
        }
        int failed = VLIBCProcForkEx(187);
        while (waitpid(-1, nullptr, 0) > 0) {
        }
        _exit(grandchild > 0 && failed == -1 && VLIBCErrGet() == 16 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(first, &status, 0), first);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(VLIBCProcForkEx(187), -1);
    ExpectErrorState(16, "proc.cpp", 3);

    Use(R"({"fork": {"fail": 17}})");
    EXPECT_EQ(VLIBCProcForkEx(187), -1);
    EXPECT_EQ(VLIBCProcForkEx(187), -1);
    EXPECT_EQ(VLIBCErrGet(), 17);
}

TEST_F(ScriptedPlatform, AddUnitSectionWritesTheDropInUnlessRefusedOrUnwritable) {
    const std::string dropIn = dir_ + "/gen/a.service.d/";
    const std::string refused = dir_ + "/refused/a.service.d/";
    Use(R"({"add_unit_section": {")" + refused + R"(a.conf": false, ")" + refused + R"(b.conf": {"fail": 9}}})");
    ASSERT_TRUE(VELA::Systemd::AddUnitSection(dropIn, "vela-pack.conf", "Unit",
                                              {{"ReloadPropagatedFrom", "x.target"}, {"PartOf", "x.target"}}));
    EXPECT_EQ(ReadFile(dropIn + "vela-pack.conf"), "[Unit]\nPartOf=x.target\nReloadPropagatedFrom=x.target\n");
    ASSERT_TRUE(VELA::Systemd::AddUnitSection(dropIn, "vela-pack.conf", "Unit", {{"PartOf", "y.target"}}));
    EXPECT_EQ(ReadFile(dropIn + "vela-pack.conf"), "[Unit]\nPartOf=y.target\n");
    struct stat info;
    ASSERT_EQ(stat((dir_ + "/gen").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755u);

    EXPECT_FALSE(VELA::Systemd::AddUnitSection(refused, "a.conf", "Unit", {{"PartOf", "x.target"}}));
    EXPECT_EQ(VLIBCErrGet(), 0);
    EXPECT_FALSE(VELA::Systemd::AddUnitSection(refused, "b.conf", "Unit", {{"PartOf", "x.target"}}));
    EXPECT_EQ(VLIBCErrGet(), 9);
    EXPECT_FALSE(fs::exists(dir_ + "/refused"));

    std::ofstream(dir_ + "/blocker") << "a file, not a directory";
    EXPECT_FALSE(VELA::Systemd::AddUnitSection(dir_ + "/blocker/a.service.d/", "x.conf", "Unit", {}));
    EXPECT_EQ(VLIBCErrGet(), ENOTDIR);
    EXPECT_STREQ(VLIBCErrorGetFile(), "scripted");
}

TEST_F(ScriptedPlatform, LinkVelaReasonMakesOneLinkPerDropInDirectory) {
    const std::string refused = dir_ + "/early/b.service.d/";
    Use(R"({"link_vela_reason": {")" + refused + R"(": false}})");
    const std::string dropIn = dir_ + "/early/a.service.d/";
    const std::string reason = "/run/velasystemd/reason-conf/vela-reason.conf";
    ASSERT_TRUE(VELA::Systemd::LinkVelaReason(dropIn, reason));
    EXPECT_EQ(fs::read_symlink(dropIn + "vela-reason.conf").string(), reason);
    EXPECT_TRUE(VELA::Systemd::LinkVelaReason(dropIn, reason));
    EXPECT_FALSE(VELA::Systemd::LinkVelaReason(dropIn, "/elsewhere.conf"));
    EXPECT_FALSE(VELA::Systemd::LinkVelaReason(refused, reason));
    EXPECT_FALSE(fs::exists(refused));
}

TEST_F(ScriptedPlatform, TouchCreatesUnlessScriptedToFail) {
    const std::string refused = dir_ + "/refused";
    Use(R"({"touch": {")" + refused + R"(": {"fail": 18, "line": 4}}})");
    const std::string flag = dir_ + "/flag";
    EXPECT_EQ(VLIBCFileTouch(flag.c_str()), 0);
    EXPECT_TRUE(fs::is_regular_file(flag));
    EXPECT_EQ(VLIBCFileTouch(flag.c_str()), 0);
    EXPECT_EQ(VLIBCFileTouch(refused.c_str()), -1);
    ExpectErrorState(18, "scripted", 4);
    EXPECT_FALSE(fs::exists(refused));
}

TEST_F(ScriptedPlatform, ExecRunsNothingAndAnswersAsScripted) {
    const std::string program = dir_ + "/program";
    Use(R"({"exec": {")" + program + R"(": 3}})");
    std::ofstream(program) << "#!/bin/sh\ntouch " << dir_ << "/ran\n";
    chmod(program.c_str(), 0755);
    EXPECT_EQ(VLIBCExec(program.c_str(), "--all", nullptr, nullptr, nullptr), 3);
    EXPECT_EQ(VLIBCExec("/bin/true", nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_FALSE(fs::exists(dir_ + "/ran"));
}

TEST_F(ScriptedPlatform, DelayHoldsUpOnlyTheNamedOperation) {
    Use(R"({"delay_ms": {"VLIBCErrorGetLine": 200}})");
    auto start = std::chrono::steady_clock::now();
    VLIBCErrGet();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    VLIBCErrorGetLine();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
}

using ScriptedPlatformDeathTest = ScriptedPlatform;

TEST_F(ScriptedPlatformDeathTest, BadScriptsAbort) {
    EXPECT_DEATH(Use("{"), "bad script");
    EXPECT_DEATH(Use(R"({"suport": {}})"), "unknown member \"suport\"");
    EXPECT_DEATH(Use(R"({"support": {"a.service": "yes"}})"), "entry \"a.service\" of \"support\"");
    EXPECT_DEATH(Use(R"({"units": {"fail": 1, "lines": 2}})"), "member \"units\" has the wrong shape");
    EXPECT_DEATH(Use(R"({"add_unit_section": {"/x/y.conf": true}})"), "wrong shape");
}

}  // namespace
