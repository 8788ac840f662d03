// The generator under systemd's own manager code. `systemd-analyze verify
// --generators=yes` starts a manager in test mode, which runs the generator
// (the only one on its generator path) on the example platform of examples/,
// loads the units and, at log level debug, dumps them on standard output and
// reports masked units on standard error. It runs in a sandbox whose
// /etc/systemd/system holds the example's units, once as an ordinary boot and
// once as the first boot after an upgrade.
//
// What the manager must report is the example's declared policy, written out
// below unit by unit: it is deliberately not derived from the example files,
// so that a change to the example, or to the generator, that changes what the
// manager loads makes these tests fail.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "sandbox.h"
#include "temporary_dir.h"
#include "unit_dump.h"

namespace {

namespace fs = std::filesystem;

// --- The example platform's policy -----------------------------------------

// Every unit file of examples/platform/etc/systemd/system.
const std::set<std::string> EXAMPLE_UNIT_FILES = {
    "ftpd.service",         "heartbeatd.service",      "iscsi-target.service", "nfs-server.service",
    "ntpd.service",         "smbd.service",            "sshd.service",         "vela-api.service",
    "vela-api.socket",      "vela-base.target",        "vela-led.service",     "vela-maintenance.target",
    "vela-net.target",      "vela-recovery.target",    "vela-scrub.service",   "vela-scrub.timer",
    "vela-storage.target",  "vela-upsd.service",       "vela-volume@.service", "wifi-ap.service",
};

// The units the manager is asked to load: every unit file but the template,
// and the one instance of the template that this model has.
const char* const VOLUME_TEMPLATE = "vela-volume@.service";
const char* const VOLUME_INSTANCE = "vela-volume@data.service";

// SupportKey=iscsi is not in the support table; SupportKey=wifi is "no".
const std::set<std::string> UNSUPPORTED_UNITS = {"iscsi-target.service", "wifi-ap.service"};

// PackedIn= of each packed unit.
const std::map<std::string, std::set<std::string>> PACKED_IN = {
    {"ftpd.service", {"vela-net.target"}},
    {"nfs-server.service", {"vela-net.target", "vela-storage.target"}},
    {"smbd.service", {"vela-storage.target"}},
};

// Services with CheckReason=yes, and the unit whose drop-in directory carries
// the reason drop-in for them: the instance gets it through its template.
const std::map<std::string, std::string> REASON_DROP_IN_OWNER = {
    {"nfs-server.service", "nfs-server.service"},
    {"smbd.service", "smbd.service"},
    {"vela-scrub.service", "vela-scrub.service"},
    {"vela-volume@data.service", "vela-volume@.service"},
};

const std::string CHECK_COMMAND = "/usr/vela/bin/velasystemctl check-service-reason ";

enum class Boot { kOrdinary, kUpgrade };

const char* NameOf(Boot boot) { return boot == Boot::kOrdinary ? "OrdinaryBoot" : "UpgradeBoot"; }

// How test names and messages show a boot.
void PrintTo(Boot boot, std::ostream* out) { *out << NameOf(boot); }

struct BootExpectation {
    // Wants= of every target of the example, as the manager must see it.
    std::map<std::string, std::set<std::string>> wants;
    // What the stand-in migration programs record, in order.
    std::vector<std::string> programRuns;
    // The generator's log messages (after the "file:line velasystemd: " prefix).
    std::multiset<std::string> logMessages;
};

// vela-recovery.target names vela-console.service, which this model does not
// ship: its enable status cannot be read, at every boot.
const char* const MISSING_CONSOLE_MESSAGE = "Fail to get [vela-console.service] enable status.";

BootExpectation ExpectationOf(Boot boot) {
    BootExpectation expected;
    if (boot == Boot::kOrdinary) {
        expected.wants = {
            // Wants= in the file; ftpd enabled in the image; sshd and the two
            // packing targets enabled by default. heartbeatd is enabled by
            // default too, but carries a change mark; ntpd, vela-upsd and
            // wifi-ap are not enabled.
            {"vela-base.target",
             {"vela-led.service", "ftpd.service", "sshd.service", "vela-net.target", "vela-storage.target"}},
            // Packed: ftpd (enabled) and nfs-server (static).
            {"vela-net.target", {"ftpd.service", "nfs-server.service"}},
            // Packed: nfs-server and smbd (static); the volume instance is
            // enabled in the image.
            {"vela-storage.target", {"nfs-server.service", "smbd.service", "vela-volume@data.service"}},
            // Named by the target: vela-api and vela-led; named by the units:
            // vela-led (again) and ntpd, which is disabled.
            {"vela-maintenance.target", {"vela-api.service", "vela-led.service"}},
            // Named by vela-led; the console service the target names is not
            // installed.
            {"vela-recovery.target", {"vela-led.service"}},
        };
    } else {
        expected.wants = {
            // Legacy settings: ntpd-server "yes" wins over ntpd-client "no",
            // so ntpd is enabled; ssh-shell "no" disables sshd for good (a
            // change mark keeps the default from enabling it); ftpd and
            // ftpd-ssl "no" disable ftpd. vela-upsd's setting is no string,
            // and pkgctl- files are not looked at.
            {"vela-base.target", {"vela-led.service", "ntpd.service", "vela-net.target", "vela-storage.target"}},
            // ftpd, now disabled, is no longer pulled in.
            {"vela-net.target", {"nfs-server.service"}},
            {"vela-storage.target", {"nfs-server.service", "smbd.service", "vela-volume@data.service"}},
            // ntpd, now enabled, stays alive for the maintenance target.
            {"vela-maintenance.target", {"ntpd.service", "vela-api.service", "vela-led.service"}},
            {"vela-recovery.target", {"vela-led.service"}},
        };
        expected.programRuns = {
            "velaservicemigrate --all",
            "nxo-configupdate.sh init_conf_migrate_upstart_to_systemd",
            "nxo-configupdate.sh init_conf_migrate_systemd_to_systemd",
        };
    }
    expected.logMessages = {MISSING_CONSOLE_MESSAGE};
    return expected;
}

// --- Running the manager ---------------------------------------------------

const char* const GENERATOR_DIR_NAME = "generators";
const char* const GENERATOR_NAME = "vela-system-generator";
const char* const PROGRAM_RECORD = "/var/log/vela-migration.log";

// The example to run on: examples/ of the source tree, or the copy that
// VELA_EXAMPLES_DIR names (for trying the test against a changed example).
std::string ExamplesDir() {
    const char* chosen = std::getenv("VELA_EXAMPLES_DIR");
    return chosen && *chosen ? chosen : VELA_SOURCE_EXAMPLES_DIR;
}

// Places every file and link below host directory `tree` at the same path in
// the sandbox (tree/etc/x at /etc/x), in its private trees. Directories are
// made on the way; those above the private trees (tree/etc) are the host's.
void CopyIntoSandbox(const sandbox::Sandbox& box, const fs::path& tree) {
    for (auto entry = fs::recursive_directory_iterator(tree); entry != fs::recursive_directory_iterator();
         ++entry) {
        if (!entry->is_symlink() && entry->is_directory()) {
            continue;
        }
        const fs::path host = box.HostPath("/" + entry->path().lexically_relative(tree).string());
        fs::create_directories(host.parent_path());
        if (entry->is_symlink()) {
            fs::copy_symlink(entry->path(), host);
        } else {
            fs::copy_file(entry->path(), host, fs::copy_options::overwrite_existing);
        }
    }
}

std::string ReadFileIfAny(const std::string& path) {
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// What the manager reported about one boot of the example platform.
struct ManagerView {
    sandbox::RunResult result;
    std::map<std::string, manager::DumpedUnit> units;
    std::vector<std::string> programRuns;
    std::vector<std::string> errLines;

    bool ErrHasLine(const std::string& line) const {
        for (const std::string& errLine : errLines) {
            if (errLine == line) {
                return true;
            }
        }
        return false;
    }
};

// The units to hand to `systemd-analyze verify`: by name, not by path. Given
// a path, verify puts the file's directory ahead of every unit directory,
// the early generator directory included, and masks would no longer count.
std::vector<std::string> UnitsToLoad() {
    std::vector<std::string> units;
    for (const std::string& unit : EXAMPLE_UNIT_FILES) {
        if (unit != VOLUME_TEMPLATE) {
            units.push_back(unit);
        }
    }
    units.push_back(VOLUME_INSTANCE);
    return units;
}

ManagerView LoadExamplePlatform(Boot boot) {
    sandbox::TemporaryDir state("vela-manager-test");
    sandbox::Sandbox box(state.Path());
    CopyIntoSandbox(box, ExamplesDir() + "/platform");
    if (boot == Boot::kUpgrade) {
        CopyIntoSandbox(box, ExamplesDir() + "/upgrade");
    }

    // A generator directory that holds the generator alone.
    const fs::path generatorDir = box.ControlHostPath(GENERATOR_DIR_NAME);
    fs::create_directories(generatorDir);
    fs::create_symlink(VELA_GENERATOR_PATH, generatorDir / GENERATOR_NAME);
    box.BindReadOnly(VELA_BUILD_DIR);
    box.SetEnv("SYSTEMD_GENERATOR_PATH", sandbox::Sandbox::ControlPath(GENERATOR_DIR_NAME));
    box.SetEnv("SYSTEMD_LOG_LEVEL", "debug");
    box.SetTimeLimit(std::chrono::seconds(120));

    std::vector<std::string> command = {"systemd-analyze", "verify", "--generators=yes", "--man=no"};
    const std::vector<std::string> units = UnitsToLoad();
    command.insert(command.end(), units.begin(), units.end());

    ManagerView view;
    view.result = box.Run(command);
    view.units = manager::ParseUnitDump(view.result.out);
    view.errLines = Lines(view.result.err);
    view.programRuns = Lines(ReadFileIfAny(box.HostPath(PROGRAM_RECORD)));
    return view;
}

// The message of a generator log line: what follows "velasystemd: ".
std::string MessageOf(const std::string& logMessage) {
    const std::string marker = "velasystemd: ";
    size_t at = logMessage.find(marker);
    return at == std::string::npos ? logMessage : logMessage.substr(at + marker.size());
}

bool StartsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// A warning about a line of a unit file or drop-in begins "PATH:LINE: ". True
// when PATH is one of ours: in the unit directory, under /run, or in the
// manager's temporary generator directories.
bool IsWarningAboutOurFiles(const std::string& line) {
    if (!StartsWith(line, "/etc/systemd/system/") && !StartsWith(line, "/run/") &&
        !StartsWith(line, "/tmp/systemd-temporary-")) {
        return false;
    }
    const size_t pathEnd = line.find(':');
    const size_t lineEnd = line.find(": ", pathEnd + 1);
    if (pathEnd == std::string::npos || lineEnd == std::string::npos || lineEnd == pathEnd + 1) {
        return false;
    }
    return line.find_first_not_of("0123456789", pathEnd + 1) == lineEnd;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string Describe(const std::set<std::string>& names) {
    std::string text = "{";
    for (const std::string& name : names) {
        text += (text.size() > 1 ? " " : "") + name;
    }
    return text + "}";
}

// --- The tests -------------------------------------------------------------

class ExamplePlatformUnderManager : public ::testing::TestWithParam<Boot> {
protected:
    static void SetUpTestSuite() {
        views_ = new std::map<Boot, ManagerView>{};
    }
    static void TearDownTestSuite() {
        delete views_;
        views_ = nullptr;
    }

    // One manager run per boot kind, shared by the tests of this process.
    const ManagerView& View() {
        auto found = views_->find(GetParam());
        if (found == views_->end()) {
            found = views_->emplace(GetParam(), LoadExamplePlatform(GetParam())).first;
        }
        return found->second;
    }

    const manager::DumpedUnit* Loaded(const std::string& unit) {
        auto found = View().units.find(unit);
        return found == View().units.end() ? nullptr : &found->second;
    }

    static std::map<Boot, ManagerView>* views_;
};

std::map<Boot, ManagerView>* ExamplePlatformUnderManager::views_ = nullptr;

TEST(ExamplePlatform, HoldsTheUnitFilesThisTestKnows) {
    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator(ExamplesDir() + "/platform/etc/systemd/system")) {
        if (!entry.is_directory()) {
            found.insert(entry.path().filename().string());
        }
    }
    EXPECT_EQ(found, EXAMPLE_UNIT_FILES);
}

TEST_P(ExamplePlatformUnderManager, RunsTheGeneratorToSuccess) {
    const ManagerView& view = View();
    ASSERT_FALSE(view.result.timedOut);
    const std::string generator =
        sandbox::Sandbox::ControlPath(GENERATOR_DIR_NAME) + "/" + GENERATOR_NAME;
    EXPECT_TRUE(view.ErrHasLine("About to execute " + generator + " (null)")) << view.result.err;
    EXPECT_TRUE(view.ErrHasLine(generator + " succeeded.")) << view.result.err;
    for (const std::string& line : view.errLines) {
        EXPECT_EQ(line.find("failed with exit status"), std::string::npos) << line;
    }
}

TEST_P(ExamplePlatformUnderManager, FindsNothingWrongWithTheUnitsOrTheGeneratedFiles) {
    for (const std::string& line : View().errLines) {
        EXPECT_EQ(line.find("Unknown key"), std::string::npos) << line;
        EXPECT_EQ(line.find("bad unit file setting"), std::string::npos) << line;
        EXPECT_FALSE(IsWarningAboutOurFiles(line)) << line;
    }
}

TEST_P(ExamplePlatformUnderManager, MasksEveryUnsupportedUnitAndLoadsTheOthers) {
    for (const std::string& unit : UnitsToLoad()) {
        if (UNSUPPORTED_UNITS.count(unit)) {
            EXPECT_TRUE(View().ErrHasLine("Unit " + unit + " is masked.")) << unit;
            EXPECT_EQ(Loaded(unit), nullptr) << unit << " was loaded";
        } else {
            EXPECT_FALSE(View().ErrHasLine("Unit " + unit + " is masked.")) << unit;
            ASSERT_NE(Loaded(unit), nullptr) << unit << " is missing from the dump";
            EXPECT_EQ(Loaded(unit)->loadState, "loaded") << unit;
        }
    }
}

TEST_P(ExamplePlatformUnderManager, GivesEveryTargetExactlyTheWantsOfItsPolicy) {
    const BootExpectation expected = ExpectationOf(GetParam());
    for (const auto& [target, wants] : expected.wants) {
        ASSERT_NE(Loaded(target), nullptr) << target;
        EXPECT_EQ(Loaded(target)->Dependencies("Wants"), wants)
            << target << " wants " << Describe(Loaded(target)->Dependencies("Wants"));
    }
}

TEST_P(ExamplePlatformUnderManager, TiesEveryPackedUnitToItsPackingUnits) {
    for (const std::string& unit : UnitsToLoad()) {
        const manager::DumpedUnit* loaded = Loaded(unit);
        if (loaded == nullptr) {
            continue;  // a masked unit; checked on its own
        }
        auto packs = PACKED_IN.find(unit);
        const std::set<std::string> expected = packs == PACKED_IN.end() ? std::set<std::string>{} : packs->second;
        EXPECT_EQ(loaded->Dependencies("PartOf"), expected) << unit;
        EXPECT_EQ(loaded->Dependencies("ReloadPropagatedFrom"), expected) << unit;

        const std::string packDropIn = "/generator/" + unit + ".d/vela-pack.conf";
        int packDropIns = 0;
        for (const std::string& path : loaded->dropInPaths) {
            if (EndsWith(path, "/vela-pack.conf")) {
                ++packDropIns;
                EXPECT_TRUE(EndsWith(path, packDropIn)) << unit << ": " << path;
            }
        }
        EXPECT_EQ(packDropIns, expected.empty() ? 0 : 1) << unit;
    }
}

TEST_P(ExamplePlatformUnderManager, RunsTheReasonCheckBeforeEveryServiceWithAReason) {
    for (const std::string& unit : UnitsToLoad()) {
        const manager::DumpedUnit* loaded = Loaded(unit);
        if (loaded == nullptr) {
            continue;
        }
        auto owner = REASON_DROP_IN_OWNER.find(unit);
        if (owner == REASON_DROP_IN_OWNER.end()) {
            EXPECT_TRUE(loaded->Commands("ExecStartPre").empty()) << unit;
            for (const std::string& path : loaded->dropInPaths) {
                EXPECT_FALSE(EndsWith(path, "/vela-reason.conf")) << unit << ": " << path;
            }
            continue;
        }
        // %n expanded by the manager to the name of the unit being started.
        EXPECT_EQ(loaded->Commands("ExecStartPre"), std::vector<std::string>{CHECK_COMMAND + unit}) << unit;
        const std::string reasonLink = "/generator.early/" + owner->second + ".d/vela-reason.conf";
        int reasonDropIns = 0;
        for (const std::string& path : loaded->dropInPaths) {
            if (EndsWith(path, "/vela-reason.conf")) {
                ++reasonDropIns;
                EXPECT_TRUE(EndsWith(path, reasonLink)) << unit << ": " << path;
            }
        }
        EXPECT_EQ(reasonDropIns, 1) << unit;
    }
}

TEST_P(ExamplePlatformUnderManager, LogsOnlyWhatThePlatformGivesReasonFor) {
    std::multiset<std::string> messages;
    for (const sandbox::SyslogLine& line : View().result.log) {
        messages.insert(MessageOf(line.message));
    }
    EXPECT_EQ(messages, ExpectationOf(GetParam()).logMessages);
}

TEST_P(ExamplePlatformUnderManager, RunsTheMigrationProgramsOnlyOnTheUpgradeBoot) {
    EXPECT_EQ(View().programRuns, ExpectationOf(GetParam()).programRuns);
}

std::string TestNameOf(const ::testing::TestParamInfo<Boot>& info) { return NameOf(info.param); }

INSTANTIATE_TEST_SUITE_P(Boots, ExamplePlatformUnderManager,
                         ::testing::Values(Boot::kOrdinary, Boot::kUpgrade), TestNameOf);

}  // namespace
