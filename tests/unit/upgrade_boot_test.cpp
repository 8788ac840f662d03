// The upgrade-boot migration, pointed into a temporary directory: the markers,
// the run-once flags, the order of its steps and the legacy auto-start files.
#include <sys/stat.h>

#include <gmock/gmock.h>

#include <initializer_list>
#include <utility>

#include "log_capture.h"
#include "scripted_platform.h"
#include "test_support.h"
#include "upgrade_boot.h"

namespace unit_test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char* MIGRATION_FILE = "upgrade_boot.cpp";

const std::string MIGRATE_RUN = "VLIBCExec(/usr/vela/sbin/velaservicemigrate, --all, null, null, null)";
const std::string UPSTART_RUN =
    "VLIBCExec(/usr/vela/lib/systemd/scripts/nxo-configupdate.sh, init_conf_migrate_upstart_to_systemd, null, "
    "null, null)";
const std::string SYSTEMD_RUN =
    "VLIBCExec(/usr/vela/lib/systemd/scripts/nxo-configupdate.sh, init_conf_migrate_systemd_to_systemd, null, "
    "null, null)";

// A system root in the test's directory: /run exists, nothing else does.
class UpgradeMigration : public ScriptedTest {
protected:
    UpgradeMigration()
        : paths_{Dir() + "/var/.UpgradeBootup", Dir() + "/old/VERSION",  Dir() + "/run",
                 Dir() + "/run/upgrade-bootup/", Dir() + "/override/", Dir() + "/conf/"} {
        MakeDirectory(Dir() + "/run");
    }

    std::string FlagPath(const std::string& name) const { return paths_.flagDir + name; }
    std::string Touch(const std::string& flag) const { return "VLIBCFileTouch(" + FlagPath(flag) + ")"; }

    // Fresh legacy directories: the override files in the order given, and
    // one file in the configuration directory.
    void MakeLegacyDirectories(const std::vector<std::pair<std::string, std::string>>& overrides) {
        MakeDirectory(paths_.overrideDir);
        for (const auto& [name, content] : overrides) {
            WriteFile(paths_.overrideDir + name, content);
        }
        MakeDirectory(paths_.confDir);
        WriteFile(paths_.confDir + "ftpd.conf", "{}");
    }

    UpgradePaths paths_;
};

// The calls of the record that start with one of `prefixes`.
std::vector<std::string> CallsOf(std::initializer_list<const char*> prefixes) {
    std::vector<std::string> calls;
    for (const std::string& call : scripted::Calls()) {
        for (const char* prefix : prefixes) {
            if (call.rfind(prefix, 0) == 0) {
                calls.push_back(call);
            }
        }
    }
    return calls;
}

std::vector<std::string> Decisions() {
    return CallsOf({"VELASystemdEnableInGenerator(", "VELASystemdDisableInGenerator("});
}
std::string Enable(const std::string& unit) { return "VELASystemdEnableInGenerator(" + unit + ")"; }
std::string Disable(const std::string& unit) { return "VELASystemdDisableInGenerator(" + unit + ")"; }

TEST_F(UpgradeMigration, AnUpgradeBootNeedsBothMarkersOfAnyTypeWithLinksFollowed) {
    const std::string root = Dir() + "/markers/";
    MakeDirectory(root);
    WriteFile(root + "file", "7.1\n");
    MakeDirectory(root + "dir");
    MakeLink(root + "file", root + "link");
    MakeLink(root + "nowhere", root + "dangling");
    const struct {
        const char* bootMarker;
        const char* versionFile;
        bool upgrade;
    } cases[] = {
        {"absent", "absent", false}, {"file", "absent", false}, {"absent", "file", false},
        {"file", "file", true},      {"dir", "file", true},     {"file", "dir", true},
        {"file", "dangling", false}, {"link", "file", true},
    };
    for (const auto& c : cases) {
        UpgradePaths paths = paths_;
        paths.bootMarker = root + c.bootMarker;
        paths.versionFile = root + c.versionFile;
        EXPECT_EQ(IsUpgradeBoot(paths), c.upgrade) << c.bootMarker << ", " << c.versionFile;
    }
    EXPECT_THAT(scripted::Calls(), IsEmpty());
}

TEST_F(UpgradeMigration, AMissingFlagIsMadeAndTheStepMayRun) {
    EXPECT_FALSE(CheckAndSetUpgradeFlag("velaservicemigrate", paths_));
    EXPECT_EQ(ReadTree(paths_.flagDir), (FileTree{{"velaservicemigrate", "file: "}}));
    EXPECT_THAT(scripted::Calls(), ElementsAre(Touch("velaservicemigrate")));
    EXPECT_THAT(LoggedLines(), IsEmpty());
    const mode_t mask = umask(0);
    umask(mask);
    struct stat info;
    ASSERT_EQ(stat(paths_.flagDir.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755 & ~mask);
}

TEST_F(UpgradeMigration, APresentFlagOfAnyTypeSkipsOnlyItsOwnStep) {
    MakeDirectory(paths_.flagDir);
    WriteFile(FlagPath("velaservicemigrate"), "");
    MakeDirectory(FlagPath("configupdate-init_conf_migrate_upstart_to_systemd"));
    RunUpgradeBootMigration(paths_);
    EXPECT_THAT(CallsOf({"VLIBCExec(", "VLIBCFileTouch("}),
                ElementsAre(Touch("migrate-runkey-to-enable"),
                            Touch("configupdate-init_conf_migrate_systemd_to_systemd"), SYSTEMD_RUN));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

TEST_F(UpgradeMigration, WithoutARunDirectoryNoFlagIsMadeAndTheStepStillRuns) {
    paths_.runDir = Dir() + "/no-run";
    paths_.flagDir = Dir() + "/no-run/upgrade-bootup/";
    RunConfigUpdate("init_conf_migrate_upstart_to_systemd", paths_);
    EXPECT_THAT(scripted::Calls(), ElementsAre(UPSTART_RUN));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(MIGRATION_FILE, "/run is not a directory?")));
    EXPECT_FALSE(Exists(Dir() + "/no-run"));
}

TEST_F(UpgradeMigration, AFlagDirectoryThatCannotBeMadeIsLoggedAndTheTouchStillTried) {
    WriteFile(Dir() + "/run/blocker", "");
    paths_.flagDir = Dir() + "/run/blocker/upgrade-bootup/";
    RunConfigUpdate("init_conf_migrate_upstart_to_systemd", paths_);
    EXPECT_THAT(scripted::Calls(),
                ElementsAre(Touch("configupdate-init_conf_migrate_upstart_to_systemd"), UPSTART_RUN));
    EXPECT_THAT(LoggedLines(),
                ElementsAre(IsLogLine(MIGRATION_FILE, "Fail to mkdir [" + paths_.flagDir + "][Not a directory]"),
                            IsLogLine(MIGRATION_FILE,
                                      "Fail to touch [configupdate-init_conf_migrate_upstart_to_systemd] flag")));
}

TEST_F(UpgradeMigration, TheFirstRunRunsEveryStepOnceInOrderAndALaterRunNothing) {
    MakeLegacyDirectories({{"ftpd.json", R"({"auto_start": "yes"})"}});
    RunUpgradeBootMigration(paths_);
    // Each flag is made before its step runs.
    EXPECT_THAT(scripted::Calls(),
                ElementsAre(Touch("velaservicemigrate"), MIGRATE_RUN,
                            Touch("configupdate-init_conf_migrate_upstart_to_systemd"), UPSTART_RUN,
                            Touch("migrate-runkey-to-enable"), "VELA::Systemd::NormalizedUnitNameGet(ftpd)",
                            "VELA::Systemd::IsEnableStatusChanged(ftpd.service)",
                            "VELASystemdEnableStatusGetInGenerator(ftpd.service)",
                            Enable("ftpd.service"),
                            Touch("configupdate-init_conf_migrate_systemd_to_systemd"), SYSTEMD_RUN));
    EXPECT_EQ(ReadTree(paths_.flagDir), (FileTree{{"configupdate-init_conf_migrate_systemd_to_systemd", "file: "},
                                                  {"configupdate-init_conf_migrate_upstart_to_systemd", "file: "},
                                                  {"migrate-runkey-to-enable", "file: "},
                                                  {"velaservicemigrate", "file: "}}));
    EXPECT_FALSE(Exists(paths_.overrideDir));
    EXPECT_FALSE(Exists(paths_.confDir));
    EXPECT_THAT(LoggedLines(), IsEmpty());

    // A later run in the same boot runs nothing, whatever it finds.
    MakeLegacyDirectories({{"ftpd.json", R"({"auto_start": "yes"})"}});
    Script("{}");
    RunUpgradeBootMigration(paths_);
    EXPECT_THAT(scripted::Calls(), IsEmpty());
    EXPECT_THAT(LoggedLines(), IsEmpty());
    EXPECT_TRUE(Exists(paths_.overrideDir + "ftpd.json"));
}

TEST_F(UpgradeMigration, StepsRunWhateverTheEarlierStepsDid) {
    Script(R"({"exec": {"/usr/vela/sbin/velaservicemigrate": 1,
                        "/usr/vela/lib/systemd/scripts/nxo-configupdate.sh": -1},
               "touch": {")" +
           FlagPath("velaservicemigrate") + R"(": {"fail": "0x711"}}})");
    MakeLegacyDirectories({{"ftpd.json", R"({"auto_start": "no"})"}});
    RunUpgradeBootMigration(paths_);
    EXPECT_THAT(CallsOf({"VLIBCExec("}), ElementsAre(MIGRATE_RUN, UPSTART_RUN, SYSTEMD_RUN));
    EXPECT_THAT(Decisions(), ElementsAre(Disable("ftpd.service")));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(MIGRATION_FILE, "Fail to touch [velaservicemigrate] flag")));

    // Its flag could not be made, so that step alone runs again.
    Script(R"({"touch": {")" + FlagPath("velaservicemigrate") + R"(": {"fail": "0x711"}}})");
    RunUpgradeBootMigration(paths_);
    EXPECT_THAT(scripted::Calls(), ElementsAre(Touch("velaservicemigrate"), MIGRATE_RUN));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(MIGRATION_FILE, "Fail to touch [velaservicemigrate] flag")));
}

TEST_F(UpgradeMigration, AutoStartSettingsBecomeEnableAndDisableCalls) {
    const std::string yes = R"({"auto_start": "yes"})";
    const std::string no = R"({"auto_start": "no"})";
    const struct {
        const char* name;
        std::vector<std::pair<std::string, std::string>> overrides;  // in the order they are made
        const char* script;
        std::vector<std::string> decisions;
    } cases[] = {
        {"yes enables the normalized unit", {{"foo.json", yes}}, "{}", {Enable("foo.service")}},
        {"no disables it", {{"foo.json", R"({"auto_start": "no", "other": 1})"}}, "{}", {Disable("foo.service")}},
        {"a legacy name stands for its unit", {{"ssh-shell.json", yes}}, "{}", {Enable("sshd.service")}},
        {"the stem ends at the last dot", {{"foo.conf.json", yes}}, "{}", {Enable("foo.conf.service")}},
        {"Yes is no decision", {{"foo.json", R"({"auto_start": "Yes"})"}}, "{}", {}},
        {"a JSON true is no decision", {{"foo.json", R"({"auto_start": true})"}}, "{}", {}},
        {"a number is no decision", {{"foo.json", R"({"auto_start": 1})"}}, "{}", {}},
        {"no auto_start is no decision", {{"foo.json", R"({"autostart": "yes"})"}}, "{}", {}},
        {"yes wins over an earlier no", {{"ntpd-client.json", no}, {"ntpd-server.json", yes}}, "{}",
         {Enable("ntpd.service")}},
        {"yes wins over a later no", {{"ntpd-server.json", yes}, {"ntpd-client.json", no}}, "{}",
         {Enable("ntpd.service")}},
        {"two noes disable once", {{"ftpd.json", no}, {"ftpd-ssl.json", no}}, "{}", {Disable("ftpd.service")}},
        {"a changed status is left alone", {{"foo.json", no}}, R"({"changed": {"foo.service": true}})", {}},
        {"status 1 is migrated", {{"foo.json", no}}, R"({"enable_status": {"foo.service": 1}})",
         {Disable("foo.service")}},
        {"status 2 is not", {{"foo.json", yes}}, R"({"enable_status": {"foo.service": 2}})", {}},
        {"status 3 is not", {{"foo.json", no}}, R"({"enable_status": {"foo.service": 3}})", {}},
        {"status -1 is not", {{"foo.json", yes}}, R"({"enable_status": {"foo.service": -1}})", {}},
        {"decisions are applied in name order", {{"b.json", yes}, {"a.json", no}}, "{}",
         {Disable("a.service"), Enable("b.service")}},
    };
    for (const auto& c : cases) {
        MakeLegacyDirectories(c.overrides);
        Script(c.script);
        MigrateAutoStart(paths_);
        EXPECT_THAT(Decisions(), ElementsAreArray(c.decisions)) << c.name;
        // Both directories go whenever the files were read, decisions or not.
        EXPECT_FALSE(Exists(paths_.overrideDir)) << c.name;
        EXPECT_FALSE(Exists(paths_.confDir)) << c.name;
        EXPECT_THAT(LoggedLines(), IsEmpty()) << c.name;
    }
}

TEST_F(UpgradeMigration, PackageFilesAreNotEvenRead) {
    MakeLegacyDirectories({{"pkgctl-foo.json", R"({"auto_start": "yes"})"}, {"pkgctl-.json", "{}"}});
    MigrateAutoStart(paths_);
    EXPECT_THAT(scripted::Calls(), IsEmpty());
    EXPECT_FALSE(Exists(paths_.overrideDir));
}

TEST_F(UpgradeMigration, WithoutAnOverrideDirectoryNothingIsDecidedOrRemoved) {
    MakeDirectory(paths_.confDir);
    WriteFile(paths_.confDir + "ftpd.conf", "{}");
    MigrateAutoStart(paths_);
    WriteFile(Dir() + "/override", R"({"auto_start": "yes"})");  // a file, not a directory
    MigrateAutoStart(paths_);
    EXPECT_THAT(scripted::Calls(), IsEmpty());
    EXPECT_EQ(ReadTree(paths_.confDir), (FileTree{{"ftpd.conf", "file: {}"}}));
    EXPECT_TRUE(Exists(Dir() + "/override"));
}

TEST_F(UpgradeMigration, HostileOverrideEntriesAreSkippedAndTheRestMigrate) {
    MakeLegacyDirectories({
        {"array.json", R"([{"auto_start": "yes"}])"},
        {"big.json", R"({"auto_start": "yes", "pad": ")" + std::string(2 << 20, 'x') + "\"}"},
        {"deep.json",
         R"({"auto_start": "yes", "nest": )" + std::string(100000, '[') + std::string(100000, ']') + "}"},
        {"good.json", R"({"auto_start": "yes"})"},
    });
    ASSERT_EQ(mkfifo((paths_.overrideDir + "fifo.json").c_str(), 0644), 0);
    MakeDirectory(paths_.overrideDir + "dir.json");
    WriteFile(paths_.overrideDir + "dir.json/inner.json", R"({"auto_start": "yes"})");
    MakeLink("/dev/zero", paths_.overrideDir + "zero.json");
    MakeLink(Dir() + "/nowhere", paths_.overrideDir + "dangling.json");
    MigrateAutoStart(paths_);
    EXPECT_THAT(Decisions(), ElementsAre(Enable("good.service")));
    EXPECT_FALSE(Exists(paths_.overrideDir));
    EXPECT_FALSE(Exists(paths_.confDir));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

}  // namespace
}  // namespace unit_test
