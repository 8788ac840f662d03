// The upgrade-boot migration as the service manager sees it: in the parent,
// before the listing, each step at most once per boot through the run-once
// flags in the real /run, and never in the way of the tasks.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "generator_sandbox.h"

namespace e2e {
namespace {

using sandbox::Dir;
using sandbox::File;
using sandbox::TreeSnapshot;

const char* const MIGRATION_SOURCE = "upgrade_boot.cpp";
const char* const UPGRADE_MARKER = "/var/.UpgradeBootup";
const char* const VERSION_MARKER = "/.old_patch_info/VERSION";
const std::string FLAG_DIR = "/run/upgrade-bootup/";
const std::string OVERRIDE_DIR = "/usr/vela/etc/velaservice.override/";
const std::string CONF_DIR = "/usr/vela/etc/velaservice.d/";

const std::string UPSTART_CONVERSION = "init_conf_migrate_upstart_to_systemd";
const std::string SYSTEMD_CONVERSION = "init_conf_migrate_systemd_to_systemd";
const std::string UPSTART_FLAG = "configupdate-" + UPSTART_CONVERSION;
const std::string SYSTEMD_FLAG = "configupdate-" + SYSTEMD_CONVERSION;
const std::string MIGRATE_RUN = "VLIBCExec(/usr/vela/sbin/velaservicemigrate, --all, null, null, null)";
const std::string UPSTART_RUN =
    "VLIBCExec(/usr/vela/lib/systemd/scripts/nxo-configupdate.sh, " + UPSTART_CONVERSION + ", null, null, null)";
const std::string SYSTEMD_RUN =
    "VLIBCExec(/usr/vela/lib/systemd/scripts/nxo-configupdate.sh, " + SYSTEMD_CONVERSION + ", null, null, null)";

std::string Touch(const std::string& flag) { return "VLIBCFileTouch(" + FLAG_DIR + flag + ")"; }

// The parent's calls after the migration: the listing and the five forks.
std::vector<std::string> TasksStarted(std::vector<std::string> before = {}) {
    before.push_back("VELASystemdListUnits()");
    before.insert(before.end(), 5, "VLIBCProcForkEx(187)");
    return before;
}

std::vector<std::string> CallsStartingWith(const std::vector<std::string>& calls, const std::string& prefix) {
    std::vector<std::string> matching;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(matching),
                 [&prefix](const std::string& call) { return call.rfind(prefix, 0) == 0; });
    return matching;
}

TreeSnapshot Flags(const std::vector<std::string>& names) {
    TreeSnapshot flags;
    for (const std::string& name : names) {
        flags[name] = File("");
    }
    return flags;
}

class UpgradeBootRuns : public GeneratorEndToEnd {
protected:
    UpgradeBootRuns() {
        box_.WriteFile(UPGRADE_MARKER, "");
        box_.WriteFile(VERSION_MARKER, "7.1\n");
        WriteScript(R"({"units": ["a.service"]})");
    }

    std::vector<std::string> ParentCalls(const GeneratorRun& run) const { return run.CallsOf(run.Pids().at(0)); }
};

TEST_F(UpgradeBootRuns, FirstRunMigratesBeforeTheListingAndALaterRunOnlyStartsTheTasks) {
    box_.WriteFile(OVERRIDE_DIR + "ntpd-client.json", R"({"auto_start": "yes"})");
    box_.WriteFile(CONF_DIR + "ntpd.conf", "{}");
    GeneratorRun first = RunWithGeneratorDirs();
    EXPECT_EQ(first.result.exitStatus, 0);
    EXPECT_TRUE(first.result.log.empty());
    EXPECT_EQ(ParentCalls(first),
              TasksStarted({Touch("velaservicemigrate"), MIGRATE_RUN, Touch(UPSTART_FLAG), UPSTART_RUN,
                            Touch("migrate-runkey-to-enable"), "VELA::Systemd::NormalizedUnitNameGet(ntpd)",
                            "VELA::Systemd::IsEnableStatusChanged(ntpd.service)",
                            "VELASystemdEnableStatusGetInGenerator(ntpd.service)",
                            "VELASystemdEnableInGenerator(ntpd.service)", Touch(SYSTEMD_FLAG), SYSTEMD_RUN}));
    const TreeSnapshot flags =
        Flags({"velaservicemigrate", UPSTART_FLAG, "migrate-runkey-to-enable", SYSTEMD_FLAG});
    EXPECT_EQ(sandbox::DiffTrees(flags, box_.Snapshot(FLAG_DIR)), "");
    EXPECT_TRUE(box_.Snapshot("/usr/vela/etc").empty()) << "both legacy directories go";

    GeneratorRun later = RunWithGeneratorDirs();
    EXPECT_EQ(later.result.exitStatus, 0);
    EXPECT_TRUE(later.result.log.empty());
    EXPECT_EQ(ParentCalls(later), TasksStarted());
    EXPECT_EQ(later.Pids().size(), 6u) << "the five tasks still run";
    EXPECT_EQ(sandbox::DiffTrees(flags, box_.Snapshot(FLAG_DIR)), "");
}

TEST_F(UpgradeBootRuns, OneMarkerAloneIsAnOrdinaryBoot) {
    box_.WriteFile(OVERRIDE_DIR + "ftpd.json", R"({"auto_start": "no"})");
    for (const char* present : {UPGRADE_MARKER, VERSION_MARKER}) {
        SCOPED_TRACE(present);
        std::filesystem::remove(box_.HostPath(UPGRADE_MARKER));
        std::filesystem::remove(box_.HostPath(VERSION_MARKER));
        box_.WriteFile(present, "");
        GeneratorRun run = RunWithGeneratorDirs();
        EXPECT_EQ(run.result.exitStatus, 0);
        EXPECT_TRUE(run.result.log.empty());
        EXPECT_EQ(ParentCalls(run), TasksStarted());
        EXPECT_EQ(box_.Snapshot("/run").count("upgrade-bootup"), 0u);
        EXPECT_EQ(sandbox::DiffTrees({{"velaservice.override", Dir()},
                                      {"velaservice.override/ftpd.json", File(R"({"auto_start": "no"})")}},
                                     box_.Snapshot("/usr/vela/etc")),
                  "");
    }
}

TEST_F(UpgradeBootRuns, FlagThatCannotBeMadeIsLoggedByNameAndItsStepRunsInEveryRun) {
    WriteScript(R"({"units": ["a.service"],
                    "touch": {"/run/upgrade-bootup/configupdate-init_conf_migrate_upstart_to_systemd": {"fail": 13}}})");
    const std::vector<std::string> message = {std::string(MIGRATION_SOURCE) + ": Fail to touch [" + UPSTART_FLAG +
                                              "] flag"};
    GeneratorRun first = RunWithGeneratorDirs();
    EXPECT_EQ(first.result.exitStatus, 0);
    EXPECT_EQ(first.MessageTexts(), message);
    EXPECT_EQ(ParentCalls(first),
              TasksStarted({Touch("velaservicemigrate"), MIGRATE_RUN, Touch(UPSTART_FLAG), UPSTART_RUN,
                            Touch("migrate-runkey-to-enable"), Touch(SYSTEMD_FLAG), SYSTEMD_RUN}));

    GeneratorRun later = RunWithGeneratorDirs();
    EXPECT_EQ(later.result.exitStatus, 0);
    EXPECT_EQ(later.MessageTexts(), message);
    EXPECT_EQ(ParentCalls(later), TasksStarted({Touch(UPSTART_FLAG), UPSTART_RUN}));
    EXPECT_EQ(sandbox::DiffTrees(Flags({"velaservicemigrate", "migrate-runkey-to-enable", SYSTEMD_FLAG}),
                                 box_.Snapshot(FLAG_DIR)),
              "");
}

TEST_F(UpgradeBootRuns, HostileOverrideFilesAreSkippedPromptlyAndTheTasksStillRun) {
    // Every unloadable file would enable its own stem's unit if it were read.
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    box_.WriteFile(OVERRIDE_DIR + "foo.json", R"({"auto_start": "yes"})");
    box_.WriteFile(OVERRIDE_DIR + "big.json", R"({"auto_start": "yes", "pad": ")" + std::string(2 << 20, ' ') + "\"}");
    box_.WriteFile(OVERRIDE_DIR + "deep.json", R"({"auto_start": "yes", "nest": )" + deep + "}");
    box_.WriteFile(OVERRIDE_DIR + "array.json", R"([{"auto_start": "yes"}])");
    box_.WriteFile(OVERRIDE_DIR + "number.json", "5");
    box_.WriteFile(OVERRIDE_DIR + "x.json/inner.json", R"({"auto_start": "yes"})");
    box_.MakeSymlink(OVERRIDE_DIR + "zero.json", "/dev/zero");
    ASSERT_EQ(mkfifo(box_.HostPath(OVERRIDE_DIR + "fifo.json").c_str(), 0644), 0);
    // Only root may make a device node; the other entries stand without it.
    (void)mknod(box_.HostPath(OVERRIDE_DIR + "tty.json").c_str(), S_IFCHR | 0644, makedev(5, 0));
    box_.WriteFile(CONF_DIR + "foo.conf", "{}");
    WriteScript(R"({"units": ["a.service"], "enable_status": {"foo.service": 0}})");

    box_.SetTimeLimit(std::chrono::seconds(10));
    const auto start = std::chrono::steady_clock::now();
    GeneratorRun run = RunWithGeneratorDirs();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_LT(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count(), 5000) << "milliseconds";
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_TRUE(run.result.log.empty());
    const std::vector<std::string> parent = ParentCalls(run);
    EXPECT_EQ(CallsStartingWith(parent, "VELA::Systemd::NormalizedUnitNameGet("),
              std::vector<std::string>{"VELA::Systemd::NormalizedUnitNameGet(foo)"})
        << "only the good file is read to the end";
    EXPECT_EQ(CallsStartingWith(parent, "VELASystemd"),
              (std::vector<std::string>{"VELASystemdEnableStatusGetInGenerator(foo.service)",
                                        "VELASystemdEnableInGenerator(foo.service)", "VELASystemdListUnits()"}));
    EXPECT_TRUE(box_.Snapshot("/usr/vela/etc").empty()) << "both legacy directories go";

    // Each task's child shows by its first call.
    std::vector<int> children = run.Pids();
    children.erase(children.begin());
    std::sort(children.begin(), children.end());
    std::vector<std::string> firstCalls;
    for (int child : children) {
        firstCalls.push_back(run.CallsOf(child).front());
    }
    EXPECT_EQ(firstCalls, (std::vector<std::string>{
                              "VELA::Systemd::ListServicesWithReason()", "VELASystemdIsSupportGet(a.service)",
                              "VELASystemdBelongsToGet(a.service)", "VELASystemdPackedInGet(a.service)",
                              "VELASystemdIsDefaultEnableGet(a.service)"}));
    ASSERT_GE(parent.size(), TasksStarted().size());
    EXPECT_EQ(std::vector<std::string>(parent.end() - TasksStarted().size(), parent.end()), TasksStarted());
}

}  // namespace
}  // namespace e2e
