// The scripted platform answers, fails, records and acts as its header says.
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

class ScriptedPlatform : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/dev/shm/scripted-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    void Use(const std::string& script) { scripted::Install(script, dir_ + "/record"); }

    struct ErrorState {
        int code;
        std::string file;
        int line;
    };
    static ErrorState ReadErrorState() { return {VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine()}; }

    static std::string ReadFile(const std::string& path) {
        std::ifstream file(path);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    std::string dir_;
};

TEST_F(ScriptedPlatform, UnitMissingFromQueryTableFailsWithNoPolicy) {
    Use(R"({"support": {"b.service": true}})");
    bool supported = true;
    EXPECT_FALSE(VELASystemdIsSupportGet("a.service", supported));
    ErrorState error = ReadErrorState();
    EXPECT_EQ(error.code, 0x700);
    EXPECT_EQ(error.file, "scripted");
    EXPECT_EQ(error.line, 0);
    std::vector<std::string> packs;
    EXPECT_FALSE(VELASystemdPackedInGet("a.service", packs));
    EXPECT_EQ(VLIBCErrGet(), 0x700);
}

TEST_F(ScriptedPlatform, ScriptedAnswersFillOutParameters) {
    Use(R"({"support": {"a.service": false}, "default_enable": {"a.service": true},
            "belongs_to": {"a.service": ["y.target", "x.target", "y.target"]}})");
    bool supported = true;
    ASSERT_TRUE(VELASystemdIsSupportGet("a.service", supported));
    EXPECT_FALSE(supported);
    bool enabled = false;
    ASSERT_TRUE(VELASystemdIsDefaultEnableGet("a.service", enabled));
    EXPECT_TRUE(enabled);
    std::vector<std::string> targets;
    ASSERT_TRUE(VELASystemdBelongsToGet("a.service", targets));
    EXPECT_EQ(targets, (std::vector<std::string>{"y.target", "x.target", "y.target"}));
}

TEST_F(ScriptedPlatform, FailureSetsOutParameterThenErrorState) {
    Use(R"({"support": {"a.service": {"fail": "0x1F", "file": "units.cpp", "line": 12, "sets": false}},
            "target_carries": {"x.target": {"fail": 7, "sets": ["a.service"]}}})");
    bool supported = true;
    EXPECT_FALSE(VELASystemdIsSupportGet("a.service", supported));
    EXPECT_FALSE(supported);
    ErrorState error = ReadErrorState();
    EXPECT_EQ(error.code, 0x1F);
    EXPECT_EQ(error.file, "units.cpp");
    EXPECT_EQ(error.line, 12);
    std::vector<std::string> units;
    EXPECT_FALSE(VELASystemdTargetCarriesGet("x.target", units));
    EXPECT_EQ(units, std::vector<std::string>{"a.service"});
    EXPECT_EQ(VLIBCErrGet(), 7);
}

TEST_F(ScriptedPlatform, ListingsWithoutScriptAreEmptySuccesses) {
    Use("{}");
    std::vector<std::string> units;
    EXPECT_TRUE(VELASystemdListUnits(units, ""));
    EXPECT_TRUE(units.empty());
    std::vector<std::string> services;
    EXPECT_TRUE(VELA::Systemd::ListServicesWithReason(services));
    EXPECT_TRUE(services.empty());
}

TEST_F(ScriptedPlatform, FailedListingSetsErrorState) {
    Use(R"({"units": {"fail": 31, "file": "list.cpp", "line": 99}})");
    std::vector<std::string> units;
    EXPECT_FALSE(VELASystemdListUnits(units, ""));
    ErrorState error = ReadErrorState();
    EXPECT_EQ(error.code, 31);
    EXPECT_EQ(error.file, "list.cpp");
    EXPECT_EQ(error.line, 99);
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
    EXPECT_FALSE(VELASystemdEnableInGenerator("b.service"));
    EXPECT_FALSE(VELASystemdEnableInGenerator("c.service"));
    EXPECT_EQ(VLIBCErrGet(), 5);
    EXPECT_FALSE(VELASystemdDisableInGenerator("a.service"));
    EXPECT_TRUE(VELASystemdDisableInGenerator("b.service"));
}

TEST_F(ScriptedPlatform, NamesTypesAndPathsFollowPlatformRulesUnlessScripted) {
    Use(R"({"normalized": {"odd": "odd.socket"}, "type": {"x.target": "Target"},
            "path": {"b.service": "/etc/systemd/system/b.service", "c.service": {"throw": "no file"}}})");
    EXPECT_EQ(VELA::Systemd::NormalizedUnitNameGet("ntpd"), "ntpd.service");
    EXPECT_EQ(VELA::Systemd::NormalizedUnitNameGet("a.timer"), "a.timer");
    EXPECT_EQ(VELA::Systemd::NormalizedUnitNameGet("x.conf"), "x.conf.service");
    EXPECT_EQ(VELA::Systemd::NormalizedUnitNameGet("odd"), "odd.socket");
    EXPECT_EQ(VELA::Systemd::UnitTypeGet("a.service"), "service");
    EXPECT_EQ(VELA::Systemd::UnitTypeGet("x.target"), "Target");
    EXPECT_EQ(VELA::Systemd::UnitTypeGet("plain"), "");
    EXPECT_EQ(VELA::Systemd::UnitPathGet("a.service"), "/usr/lib/systemd/system/a.service");
    EXPECT_EQ(VELA::Systemd::UnitPathGet("b.service"), "/etc/systemd/system/b.service");
    try {
        VELA::Systemd::UnitPathGet("c.service");
        ADD_FAILURE() << "UnitPathGet(c.service) did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no file");
    }
}

TEST_F(ScriptedPlatform, RecordsEveryCallOfThisProcessInOrder) {
    Use(R"({"units": ["a.service"]})");
    std::vector<std::string> units;
    VELASystemdListUnits(units, "");
    VELA::Systemd::AddUnitSection(dir_ + "/n/a.service.d/", "vela-pack.conf", "Unit",
                                  {{"ReloadPropagatedFrom", "x.target y.target"}, {"PartOf", "x.target y.target"}});
    VLIBCExec("/usr/vela/sbin/velaservicemigrate", "--all", nullptr, nullptr, nullptr);
    bool supported = true;
    VELASystemdIsSupportGet("line\nbreak", supported);
    VLIBCErrGet();
    EXPECT_EQ(scripted::Calls(),
              (std::vector<std::string>{
                  "VELASystemdListUnits()",
                  "VELA::Systemd::AddUnitSection(" + dir_ +
                      "/n/a.service.d/, vela-pack.conf, Unit, {PartOf=x.target y.target, "
                      "ReloadPropagatedFrom=x.target y.target})",
                  "VLIBCExec(/usr/vela/sbin/velaservicemigrate, --all, null, null, null)",
                  "VELASystemdIsSupportGet(line\\x0Abreak)",
                  "VLIBCErrGet()",
              }));
    for (const scripted::Call& call : scripted::RecordedCalls(dir_ + "/record")) {
        EXPECT_EQ(call.pid, getpid()) << call.text;
    }
}

TEST_F(ScriptedPlatform, InstallStartsAnEmptyRecord) {
    Use("{}");
    VLIBCErrGet();
    Use("{}");
    EXPECT_TRUE(scripted::AllCalls().empty());
}

TEST_F(ScriptedPlatform, ForkedChildrenAppendToTheSameRecord) {
    Use("{}");
    constexpr int CHILDREN = 5;
    constexpr int CALLS_PER_CHILD = 200;
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
    EXPECT_EQ(scripted::Calls(), std::vector<std::string>(CHILDREN, "VLIBCProcForkEx(187)"));
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

TEST_F(ScriptedPlatform, ForkFailsOnListedCallsOnlyCountingPerProcess) {
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
    ErrorState error = ReadErrorState();
    EXPECT_EQ(error.code, 16);
    EXPECT_EQ(error.file, "proc.cpp");
    EXPECT_EQ(error.line, 3);
}

TEST_F(ScriptedPlatform, ForkFailureWithoutCallsFailsEveryCall) {
    Use(R"({"fork": {"fail": 16}})");
    EXPECT_EQ(VLIBCProcForkEx(187), -1);
    EXPECT_EQ(VLIBCProcForkEx(187), -1);
    EXPECT_EQ(VLIBCErrGet(), 16);
}

TEST_F(ScriptedPlatform, AddUnitSectionWritesRealDropInWithParents) {
    Use("{}");
    const std::string dropIn = dir_ + "/gen/a.service.d/";
    ASSERT_TRUE(VELA::Systemd::AddUnitSection(dropIn, "vela-pack.conf", "Unit",
                                              {{"ReloadPropagatedFrom", "x.target"}, {"PartOf", "x.target"}}));
    EXPECT_EQ(ReadFile(dropIn + "vela-pack.conf"), "[Unit]\nPartOf=x.target\nReloadPropagatedFrom=x.target\n");
    ASSERT_TRUE(VELA::Systemd::AddUnitSection(dropIn, "vela-pack.conf", "Unit", {{"PartOf", "y.target"}}));
    EXPECT_EQ(ReadFile(dropIn + "vela-pack.conf"), "[Unit]\nPartOf=y.target\n");
    struct stat info;
    ASSERT_EQ(stat((dir_ + "/gen").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755u);
}

TEST_F(ScriptedPlatform, RefusedAddUnitSectionWritesNothing) {
    const std::string dropIn = dir_ + "/gen/a.service.d/";
    Use(R"({"add_unit_section": {")" + dropIn + R"(vela-pack.conf": false,
            ")" + dropIn + R"(other.conf": {"fail": 9}}})");
    VLIBCFileTouch((dir_ + "/reset").c_str());
    EXPECT_FALSE(VELA::Systemd::AddUnitSection(dropIn, "vela-pack.conf", "Unit", {{"PartOf", "x.target"}}));
    EXPECT_EQ(VLIBCErrGet(), 0);
    EXPECT_FALSE(VELA::Systemd::AddUnitSection(dropIn, "other.conf", "Unit", {{"PartOf", "x.target"}}));
    EXPECT_EQ(VLIBCErrGet(), 9);
    EXPECT_FALSE(fs::exists(dir_ + "/gen"));
}

TEST_F(ScriptedPlatform, AddUnitSectionFailsWhenTheFileCannotBeWritten) {
    Use("{}");
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
    EXPECT_EQ(VLIBCErrGet(), 18);
    EXPECT_EQ(VLIBCErrorGetLine(), 4);
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
