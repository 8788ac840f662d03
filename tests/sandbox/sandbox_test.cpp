// The sandbox keeps a run private, shows what it wrote, and catches its output,
// syslog lines and exit status.
#include "sandbox.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "temporary_dir.h"

namespace {

using sandbox::Dir;
using sandbox::File;
using sandbox::Link;
using sandbox::RunResult;
using sandbox::Sandbox;
using sandbox::TemporaryDir;
using sandbox::TreeSnapshot;

class SandboxRun : public ::testing::Test {
protected:
    SandboxRun() : state_("sandbox-test"), box_(state_.Path()) {
        box_.BindReadOnly(std::filesystem::path(SYSLOG_PROBE).parent_path().string());
    }

    RunResult Shell(const std::string& script) { return box_.Run({"/bin/sh", "-c", script}); }

    TemporaryDir state_;
    Sandbox box_;
};

TEST_F(SandboxRun, RunsAloneWithOnlyTheSetEnvironmentAndCatchesStatusAndStreams) {
    box_.SetEnv("VELA_SCRIPT", "/.vela-test/script.json");
    // In its own pid namespace bubblewrap's init is process 1, the command 2.
    RunResult result = Shell("echo $$; env | sort; echo err >&2; exit 7");
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 7);
    EXPECT_EQ(result.out, "2\nPATH=/usr/sbin:/usr/bin:/sbin:/bin\nPWD=/\nVELA_SCRIPT=/.vela-test/script.json\n");
    EXPECT_EQ(result.err, "err\n");
}

TEST_F(SandboxRun, PreparedAndControlFilesAreSeenInsideAndTheControlDirectoryOutside) {
    box_.WriteFile("/usr/vela/etc/unit-support.conf", "A=yes\n");
    box_.WriteFile("/.old_patch_info/VERSION", "7\n");
    std::ofstream(box_.ControlHostPath("script.json")) << "{}";
    RunResult result = Shell("cat /usr/vela/etc/unit-support.conf /.old_patch_info/VERSION /.vela-test/script.json"
                             " && echo line >> /.vela-test/record");
    EXPECT_EQ(result.out, "A=yes\n7\n{}") << result.err;
    std::ostringstream record;
    record << std::ifstream(box_.ControlHostPath("record")).rdbuf();
    EXPECT_EQ(record.str(), "line\n");
}

TEST_F(SandboxRun, WritesInsideLandInTheStateDirectory) {
    RunResult result = Shell("mkdir /run/systemd/generator/x.target.wants && "
                             "ln -s /dev/null /run/systemd/generator.early/a.service && "
                             "echo v > /var/.UpgradeBootup && touch /tmp/t");
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(sandbox::DiffTrees({{"x.target.wants", Dir()}}, box_.Snapshot(Sandbox::NORMAL_DIR)), "");
    EXPECT_EQ(sandbox::DiffTrees({{"a.service", Link("/dev/null")}}, box_.Snapshot(Sandbox::EARLY_DIR)), "");
    EXPECT_EQ(sandbox::DiffTrees({{".UpgradeBootup", File("v\n")}}, box_.Snapshot("/var")), "");
    EXPECT_EQ(box_.Snapshot("/tmp").count("t"), 1u);
}

TEST_F(SandboxRun, TheHostIsReadOnlyAndItsSystemConfigurationHidden) {
    RunResult result = Shell("for p in /usr/vela-probe /etc/vela-probe /vela-probe /usr/bin/vela-probe; do "
                             "touch $p 2>/dev/null || echo refused; done; "
                             "ls -A /etc/systemd /etc/velasystemd /var /tmp; test -e /etc/passwd && echo passwd");
    EXPECT_EQ(result.out, "refused\nrefused\nrefused\nrefused\n"
                          "/etc/systemd:\n\n/etc/velasystemd:\n\n/tmp:\n\n/var:\npasswd\n");
    EXPECT_FALSE(std::filesystem::exists("/usr/vela-probe"));
    EXPECT_FALSE(std::filesystem::exists("/etc/vela-probe"));
}

TEST_F(SandboxRun, CatchesSyslogLinesWithPriorityIdentAndMessage) {
    RunResult result = box_.Run({SYSLOG_PROBE, "0", "first line", "x.cpp:12 velasystemd: second"});
    ASSERT_EQ(result.log.size(), 2u);
    EXPECT_EQ(result.log[0].priority, 11);
    EXPECT_EQ(result.log[0].ident, "syslog_probe");
    EXPECT_EQ(result.log[0].message, "first line");
    EXPECT_EQ(result.log[1].message, "x.cpp:12 velasystemd: second");
}

TEST_F(SandboxRun, TimeLimitKillsTheRun) {
    box_.SetTimeLimit(std::chrono::milliseconds(300));
    auto start = std::chrono::steady_clock::now();
    RunResult result = Shell("sleep 20");
    EXPECT_TRUE(result.timedOut);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(SandboxRun, UnitFilesGoIntoPrivateUnitDirectoriesWithLinksKept) {
    box_.InstallUnitFile("a.service", "[Unit]\nDescription=A\n", "/usr/lib/systemd/system");
    TemporaryDir units("sandbox-units");
    std::ofstream(units.Path() + "/b.target") << "[Unit]\n";
    std::filesystem::create_directory(units.Path() + "/x.target.wants");
    std::filesystem::create_symlink("../b.target", units.Path() + "/x.target.wants/b.target");
    box_.InstallUnitFiles(units.Path());
    RunResult result = Shell("ls /etc/systemd/system /usr/lib/systemd/system; "
                             "test -d /usr/lib/x86_64-linux-gnu && echo libs");
    EXPECT_EQ(result.out,
              "/etc/systemd/system:\nb.target\nx.target.wants\n\n/usr/lib/systemd/system:\na.service\nlibs\n");
    TreeSnapshot actual = box_.Snapshot(Sandbox::SYSTEM_UNIT_DIR);
    actual["b.target"].mode = 0644;  // the copy keeps the umask-dependent mode of the source
    EXPECT_EQ(sandbox::DiffTrees({{"b.target", File("[Unit]\n")},
                                  {"x.target.wants", Dir()},
                                  {"x.target.wants/b.target", Link("../b.target")}},
                                 actual),
              "");
}

TEST(SandboxPaths, HostPathsOnlyForPrivatePathsAndEmptyGeneratorDirectories) {
    TemporaryDir state("sandbox-test");
    Sandbox box(state.Path());
    EXPECT_EQ(box.HostPath("/usr/vela/etc/x"), state.Path() + "/root/usr/vela/etc/x");
    EXPECT_EQ(box.HostPath("/run"), state.Path() + "/root/run");
    EXPECT_THROW(box.HostPath("/usr/velax"), std::invalid_argument);
    EXPECT_THROW(box.HostPath("/etc/passwd"), std::invalid_argument);
    EXPECT_EQ(Sandbox::ControlPath("record"), "/.vela-test/record");
    EXPECT_EQ(sandbox::DiffTrees({{"generator", Dir()}, {"generator.early", Dir()}, {"generator.late", Dir()}},
                                 box.Snapshot("/run/systemd")),
              "");
}

TEST(TreeSnapshot, RecordsTypesModesContentsAndTargets) {
    TemporaryDir dir("sandbox-tree");
    std::filesystem::create_directories(dir.Path() + "/d/e");
    std::ofstream(dir.Path() + "/d/f") << "x\ny";
    std::filesystem::permissions(dir.Path() + "/d/f", std::filesystem::perms(0600));
    std::filesystem::permissions(dir.Path() + "/d/e", std::filesystem::perms(0700));
    std::filesystem::create_symlink("/dev/null", dir.Path() + "/m");
    TreeSnapshot actual = sandbox::SnapshotTree(dir.Path());
    actual["d"].mode = 0755;
    TreeSnapshot expected = {
        {"d", Dir()}, {"d/e", Dir(0700)}, {"d/f", File("x\ny", 0600)}, {"m", Link("/dev/null")}};
    EXPECT_EQ(sandbox::DiffTrees(expected, actual), "");
    EXPECT_TRUE(sandbox::SnapshotTree(dir.Path() + "/missing").empty());
}

TEST(TreeSnapshot, DiffNamesMissingExtraAndChangedEntries) {
    TreeSnapshot expected = {{"a", Link("/dev/null")}, {"b", File("1")}};
    TreeSnapshot actual = {{"b", File("2")}, {"c", Dir()}};
    EXPECT_EQ(sandbox::DiffTrees(expected, actual),
              "- a link \"/dev/null\"\n"
              "- b file 0644 \"1\"\n"
              "+ b file 0644 \"2\"\n"
              "+ c dir 0755\n");
}

TEST(SyslogDatagram, SplitsPriorityIdentAndMessage) {
    static const struct {
        const char* datagram;
        int priority;
        const char* ident;
        const char* message;
    } cases[] = {
        {"<11>Nov 22 22:53:19 vela-system-generator: a.cpp:3 velasystemd: x: y", 11, "vela-system-generator",
         "a.cpp:3 velasystemd: x: y"},
        {"<11>Nov  2 02:03:04 gen: m\n", 11, "gen", "m"},
        {"<3>Jan  1 00:00:00 gen[12]: m", 3, "gen[12]", "m"},
        {"no priority", -1, "", ""},
        {"<x>Jan  1 00:00:00 gen: m", -1, "", ""},
        {"<11>short", -1, "", ""},
    };
    for (const auto& c : cases) {
        sandbox::SyslogLine line = sandbox::ParseSyslogDatagram(c.datagram);
        EXPECT_EQ(line.priority, c.priority) << c.datagram;
        EXPECT_EQ(line.ident, c.ident) << c.datagram;
        EXPECT_EQ(line.message, c.message) << c.datagram;
    }
}

}  // namespace
