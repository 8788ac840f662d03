// Every platform operation failing in each way the platform can report it,
// one at a time and all at once, against the built generator. Each case
// states the whole outcome: exit status, every log line, what the run leaves
// in the file tree and which enabling calls it makes.
#include <gtest/gtest.h>
#include <json/writer.h>

#include <cctype>
#include <string>
#include <vector>

#include "base_platform.h"
#include "fault_sandbox.h"

namespace faults {
namespace {

using sandbox::Dir;
using sandbox::File;
using sandbox::Link;
using sandbox::TreeSnapshot;

struct FaultCase {
    const char* name;
    std::string script;  // merged into the base platform's script
    int exitStatus;
    std::vector<Message> messages;         // every line logged, in any order
    std::vector<std::string> unwritten;    // base outputs (with all below) the run leaves as they were
    TreeSnapshot extraOutput;              // outputs beyond the base's
    std::vector<std::string> enabling;     // enable, disable and exec calls, in order
    bool flagsMade = true;                 // on an upgrade boot: the four run-once flags exist afterwards
    std::vector<std::string> gone = {};    // paths (with all below) that the run removes
};

// Checks one run against its case and the whole tree it must leave.
void CheckCase(const FaultCase& c, const FaultRun& run, const TreeSnapshot& expectedAfter,
               const std::vector<std::string>& removable) {
    EXPECT_EQ(run.result.exitStatus, c.exitStatus);

    const std::vector<Message> messages = Sorted(run.Messages());
    const std::vector<Message> expected = Sorted(c.messages);
    EXPECT_EQ(messages, expected) << "logged:\n" << Describe(messages) << "expected:\n" << Describe(expected);

    EXPECT_EQ(ChangesOutsideItsPlaces(run.before, run.after, removable), "");
    EXPECT_EQ(sandbox::DiffTrees(expectedAfter, run.after), "");
    EXPECT_EQ(run.CallsOf(ENABLING), c.enabling);
}

// The whole tree a case leaves, from the tree it started with.
TreeSnapshot ExpectedTree(const TreeSnapshot& before, const FaultCase& c) {
    TreeSnapshot output = BaseOutput();
    for (const std::string& path : c.unwritten) {
        RemoveSubtree(output, path);
    }
    TreeSnapshot expected = Union(Union(before, output), c.extraOutput);
    for (const std::string& path : c.gone) {
        RemoveSubtree(expected, path);
    }
    return expected;
}

std::vector<FaultCase> OneAtATime() {
    return {
        {"no failure", "{}", 0, {}, {}, {}, {ENABLE_B}},

        // The unit listing: the only failure that ends the run, whatever its code.
        {"listing fails with 0x700", R"({"units": {"fail": "0x700", "file": "list.cpp", "line": 7}})", 1,
         {{DRIVER, "Fail to list units.[0x0700 list.cpp:7]"}}, NOTHING, {}, {}},
        {"listing fails with 0x1F", R"({"units": {"fail": 31, "file": "list.cpp", "line": 8}})", 1,
         {{DRIVER, "Fail to list units.[0x001F list.cpp:8]"}}, NOTHING, {}, {}},

        // Forks: the driver's are logged and cost their task; the reason task's
        // are silent and cost one service.
        {"every fork fails", R"({"fork": {"fail": "0x71C", "file": "fork.cpp", "line": 5}})", 0,
         std::vector<Message>(5, {DRIVER, "Fail to fork.[0x071C fork.cpp:5]"}), NOTHING, {}, {}},
        // Each process counts its own forks: the driver's second starts the
        // masking task, the reason task's second links b.service.
        {"second fork of each process fails", R"({"fork": {"fail": 12, "file": "fork.cpp", "line": 6, "calls": [2]}})",
         0, {{DRIVER, "Fail to fork.[0x000C fork.cpp:6]"}}, {Early("a.service"), Early("b.service.d")}, {}, {ENABLE_B}},
        {"reason link not forked",
         R"({"services_with_reason": ["a.service", "b.service", "c.service", "d.service", "e.service", "f.service"],
             "fork": {"fail": 12, "calls": [6]}})",
         0, {}, {},
         {{Early("c.service.d"), Dir()}, {Early("c.service.d/vela-reason.conf"), Link(REASON_FILE)},
          {Early("d.service.d"), Dir()}, {Early("d.service.d/vela-reason.conf"), Link(REASON_FILE)},
          {Early("e.service.d"), Dir()}, {Early("e.service.d/vela-reason.conf"), Link(REASON_FILE)}},
         {ENABLE_B}},

        // Per-unit queries: 0x700 is silent, any other code logged once; the
        // out-parameter filled before the failure is never used.
        {"support query 0x700", R"({"support": {"a.service": {"fail": "0x700", "sets": false}}})", 0, {},
         {Early("a.service")}, {}, {ENABLE_B}},
        {"support query 0x1F", R"({"support": {"a.service": {"fail": 31, "sets": false}}})", 0,
         {{MASKING, "Fail to get SupportKey in [a.service]."}}, {Early("a.service")}, {}, {ENABLE_B}},
        {"default-enable query 0x700", R"({"default_enable": {"b.service": {"fail": "0x700", "sets": true}}})", 0,
         {}, {}, {}, {}},
        {"default-enable query 0x1F", R"({"default_enable": {"b.service": {"fail": 31, "sets": true}}})", 0,
         {{DEFAULTS, "Fail to VELASystemdIsDefaultEnableGet in [b.service]."}}, {}, {}, {}},
        {"stay-alive targets 0x700", R"({"belongs_to": {"a.service": {"fail": "0x700", "sets": ["x.target"]}}})", 0,
         {}, {Normal("x.target.wants/a.service")}, {}, {ENABLE_B}},
        {"stay-alive targets 0x1F", R"({"belongs_to": {"a.service": {"fail": 31, "sets": ["x.target"]}}})", 0,
         {{STAY_ALIVE, "Fail to get StayAliveWhenIsolateToTargets in [a.service]."}},
         {Normal("x.target.wants/a.service")}, {}, {ENABLE_B}},
        {"carried units 0x700", R"({"target_carries": {"x.target": {"fail": "0x700", "sets": ["c.service"]}}})", 0,
         {}, {Normal("x.target.wants/c.service")}, {}, {ENABLE_B}},
        {"carried units 0x1F", R"({"target_carries": {"x.target": {"fail": 31, "sets": ["c.service"]}}})", 0,
         {{STAY_ALIVE, "Fail to get StayAliveUnitsWhenIsolated in [x.target]."}},
         {Normal("x.target.wants/c.service")}, {}, {ENABLE_B}},
        {"packing query 0x700", R"({"packed_in": {"b.service": {"fail": "0x700", "sets": ["x.target"]}}})", 0, {},
         {Normal("b.service.d"), Normal("x.target.wants/b.service"), Normal("y.target.wants")}, {}, {ENABLE_B}},
        {"packing query 0x1F", R"({"packed_in": {"b.service": {"fail": 31, "sets": ["x.target"]}}})", 0,
         {{PACKING, "Fail to get VELASystemdPackedInGet in [b.service]."}},
         {Normal("b.service.d"), Normal("x.target.wants/b.service"), Normal("y.target.wants")}, {}, {ENABLE_B}},

        // Enabling and enable status.
        {"enabling refused", R"({"enable": {"b.service": false}})", 0,
         {{DEFAULTS, "Fail to enable unit [b.service]."}}, {}, {}, {ENABLE_B}},
        {"enabling fails with a code", R"({"enable": {"b.service": {"fail": 31}}})", 0,
         {{DEFAULTS, "Fail to enable unit [b.service]."}}, {}, {}, {ENABLE_B}},
        {"enable status -1", R"({"enable_status": {"a.service": -1, "b.service": -1}})", 0,
         {{WANTS, "Fail to get [a.service] enable status."}, {WANTS, "Fail to get [b.service] enable status."}},
         {Normal("x.target.wants/a.service"), Normal("x.target.wants/b.service"), Normal("y.target.wants")}, {},
         {ENABLE_B}},

        // A unit path that throws skips its links, and makes no ".wants/".
        {"unit path throws", R"({"path": {"b.service": {"throw": "no unit file"}}})", 0, {},
         {Normal("x.target.wants/b.service"), Normal("y.target.wants")}, {}, {ENABLE_B}},

        // The reason task: a failed listing ends it before it touches the old
        // reason drop-in, a failed write after it has removed it.
        {"reason listing 0x700", R"({"services_with_reason": {"fail": "0x700", "file": "reason.cpp", "line": 3}})", 0,
         {{REASONS, "Fail to list service units.[0x0700 reason.cpp:3]"}},
         {Early("a.service.d"), Early("b.service.d"), REASON_OUT}, {}, {ENABLE_B}},
        {"reason listing 0x1F", R"({"services_with_reason": {"fail": 31, "file": "reason.cpp", "line": 4}})", 0,
         {{REASONS, "Fail to list service units.[0x001F reason.cpp:4]"}},
         {Early("a.service.d"), Early("b.service.d"), REASON_OUT}, {}, {ENABLE_B}},
        {"reason drop-in refused",
         R"({"add_unit_section": {"/run/velasystemd/reason-conf/vela-reason.conf": false}})", 0,
         {{REASONS, "Fail to create [/run/velasystemd/reason-conf/vela-reason.conf]."}},
         {Early("a.service.d"), Early("b.service.d"), REASON_OUT}, {}, {ENABLE_B}, true, {REASON_FILE.substr(1)}},
        {"reason drop-in fails with a code",
         R"({"add_unit_section": {"/run/velasystemd/reason-conf/vela-reason.conf": {"fail": 28}}})", 0,
         {{REASONS, "Fail to create [/run/velasystemd/reason-conf/vela-reason.conf]."}},
         {Early("a.service.d"), Early("b.service.d"), REASON_OUT}, {}, {ENABLE_B}, true, {REASON_FILE.substr(1)}},
        {"reason link refused", R"({"link_vela_reason": {"/run/systemd/generator.early/a.service.d/": false}})", 0,
         {}, {Early("a.service.d")}, {}, {ENABLE_B}},
        {"reason link fails with a code",
         R"({"link_vela_reason": {"/run/systemd/generator.early/b.service.d/": {"fail": 31}}})", 0, {},
         {Early("b.service.d")}, {}, {ENABLE_B}},

        // A refused pack drop-in is not looked at: the links are still made.
        {"pack drop-in refused",
         R"({"add_unit_section": {"/run/systemd/generator/b.service.d/vela-pack.conf": {"fail": 31}}})", 0, {},
         {Normal("b.service.d")}, {}, {ENABLE_B}},
    };
}

// "enable status -1" -> "EnableStatus1": a test name for each case.
std::string CaseName(const char* name) {
    std::string camel;
    bool upper = true;
    for (const char* c = name; *c; ++c) {
        if (std::isalnum(static_cast<unsigned char>(*c))) {
            camel += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(*c))) : *c;
            upper = false;
        } else {
            upper = true;
        }
    }
    return camel;
}

void PrintTo(const FaultCase& c, std::ostream* out) { *out << c.name; }

std::string NameOf(const ::testing::TestParamInfo<FaultCase>& info) { return CaseName(info.param.name); }

class EachFailureAlone : public ::testing::TestWithParam<FaultCase> {};

TEST_P(EachFailureAlone, LeavesExactlyItsTrace) {
    const FaultCase& c = GetParam();
    FaultSandbox sandbox;
    PrepareBasePlatform(sandbox.Box());
    sandbox.WriteScript(MergeScript(ParseJson(BASE_SCRIPT), ParseJson(c.script)));
    const FaultRun run = sandbox.Run();
    CheckCase(c, run, ExpectedTree(run.before, c), {});
}

INSTANTIATE_TEST_SUITE_P(FaultMatrix, EachFailureAlone, ::testing::ValuesIn(OneAtATime()), NameOf);

// --- Upgrade boot -----------------------------------------------------------

const char* const OVERRIDE_DIR = "/usr/vela/etc/velaservice.override";
const char* const CONF_DIR = "/usr/vela/etc/velaservice.d";

const char* const EXEC_MIGRATE = "VLIBCExec(/usr/vela/sbin/velaservicemigrate, --all, null, null, null)";
const char* const EXEC_UPSTART =
    "VLIBCExec(/usr/vela/lib/systemd/scripts/nxo-configupdate.sh, init_conf_migrate_upstart_to_systemd, null, null, "
    "null)";
const char* const EXEC_SYSTEMD =
    "VLIBCExec(/usr/vela/lib/systemd/scripts/nxo-configupdate.sh, init_conf_migrate_systemd_to_systemd, null, null, "
    "null)";
const char* const ENABLE_FTPD = "VELASystemdEnableInGenerator(ftpd.service)";
const char* const DISABLE_NTPD = "VELASystemdDisableInGenerator(ntpd.service)";

const char* const FLAG_NAMES[] = {"velaservicemigrate", "configupdate-init_conf_migrate_upstart_to_systemd",
                                  "migrate-runkey-to-enable", "configupdate-init_conf_migrate_systemd_to_systemd"};

// The first boot after an upgrade: ftpd is to be enabled, ntpd disabled, and
// one legacy file does not load.
void PrepareUpgradeBoot(sandbox::Sandbox& box) {
    box.WriteFile("/var/.UpgradeBootup", "");
    box.WriteFile("/.old_patch_info/VERSION", "7.2\n");
    box.WriteFile(std::string(OVERRIDE_DIR) + "/ftpd.json", R"({"auto_start": "yes"})");
    box.WriteFile(std::string(OVERRIDE_DIR) + "/ntpd-client.json", R"({"auto_start": "no", "port": 123})");
    box.WriteFile(std::string(OVERRIDE_DIR) + "/sftp.json", R"({"auto_start": yes})");
    box.WriteFile(std::string(CONF_DIR) + "/ntpd.conf", "server pool\n");
}

const char* const UPGRADE_SCRIPT = R"({"enable_status": {"ftpd.service": 0, "ntpd.service": 1, "sshd.service": 1}})";

TreeSnapshot UpgradeOutput() {
    TreeSnapshot output = {{FLAGS_OUT, Dir()}};
    for (const char* flag : FLAG_NAMES) {
        output[std::string(FLAGS_OUT) + "/" + flag] = File("");
    }
    return output;
}

const std::vector<std::string> UPGRADE_CALLS = {EXEC_MIGRATE, EXEC_UPSTART, ENABLE_FTPD, DISABLE_NTPD, EXEC_SYSTEMD};

std::vector<std::string> Then(std::vector<std::string> calls, const std::vector<std::string>& more) {
    calls.insert(calls.end(), more.begin(), more.end());
    return calls;
}

std::vector<Message> TouchMessages() {
    std::vector<Message> messages;
    for (const char* flag : FLAG_NAMES) {
        messages.push_back({UPGRADE, std::string("Fail to touch [") + flag + "] flag"});
    }
    return messages;
}

const char* const FAILING_TOUCH = R"("touch": {
    "/run/upgrade-bootup/velaservicemigrate": {"fail": 13},
    "/run/upgrade-bootup/configupdate-init_conf_migrate_upstart_to_systemd": {"fail": 13},
    "/run/upgrade-bootup/migrate-runkey-to-enable": {"fail": 13},
    "/run/upgrade-bootup/configupdate-init_conf_migrate_systemd_to_systemd": {"fail": 13}})";
const char* const FAILING_EXEC =
    R"("exec": {"/usr/vela/sbin/velaservicemigrate": -1, "/usr/vela/lib/systemd/scripts/nxo-configupdate.sh": 2})";
const char* const FAILING_MIGRATION_ENABLING =
    R"("enable": {"ftpd.service": false}, "disable": {"ntpd.service": {"fail": 31}})";

std::vector<FaultCase> MigrationFailures() {
    const std::vector<std::string> calls = Then(UPGRADE_CALLS, {ENABLE_B});
    return {
        {"upgrade boot, no failure", "{}", 0, {}, {}, {}, calls},
        {"migration programs fail", std::string("{") + FAILING_EXEC + "}", 0, {}, {}, {}, calls},
        {"flags cannot be made", std::string("{") + FAILING_TOUCH + "}", 0, TouchMessages(), {}, {}, calls, false},
        {"legacy enabling and disabling fail", std::string("{") + FAILING_MIGRATION_ENABLING + "}", 0, {}, {}, {},
         calls},
        {"legacy unit status -1", R"({"enable_status": {"ftpd.service": -1}})", 0, {}, {}, {},
         {EXEC_MIGRATE, EXEC_UPSTART, DISABLE_NTPD, EXEC_SYSTEMD, ENABLE_B}},
    };
}

// Every query about every unit fails with `code` after filling its
// out-parameter, and every other operation fails too.
std::string EverythingFails(const std::string& code) {
    Json::Value script;
    for (const char* unit : {"a.service", "b.service", "c.service", "x.target"}) {
        Json::Value failure;
        failure["fail"] = ParseJson(code);
        failure["sets"] = false;
        script["support"][unit] = failure;
        failure["sets"] = true;
        script["default_enable"][unit] = failure;
        failure["sets"] = ParseJson(R"(["x.target"])");
        for (const char* query : {"belongs_to", "target_carries", "packed_in"}) {
            script[query][unit] = failure;
        }
        script["enable"][unit] = false;
        script["enable_status"][unit] = -1;
        script["path"][unit]["throw"] = "no unit file";
    }
    script["services_with_reason"] = ParseJson(R"({"file": "reason.cpp", "line": 9})");
    script["services_with_reason"]["fail"] = ParseJson(code);
    Json::Value rest = ParseJson(std::string("{") + FAILING_TOUCH + ", " + FAILING_EXEC + ", " +
                                 FAILING_MIGRATION_ENABLING + R"(,
        "add_unit_section": {"/run/velasystemd/reason-conf/vela-reason.conf": false},
        "link_vela_reason": {"/run/systemd/generator.early/a.service.d/": false}})");
    return Json::writeString(Json::StreamWriterBuilder(), MergeScript(script, rest));
}

// Queries answer, and every step after them fails: enabling, enable status,
// unit paths, both drop-ins, and the whole migration.
std::string EveryLaterStepFails() {
    return std::string(R"({
        "enable": {"b.service": false, "ftpd.service": false}, "disable": {"ntpd.service": false},
        "enable_status": {"a.service": -1},
        "path": {"b.service": {"throw": "x"}, "c.service": {"throw": "x"}},
        "add_unit_section": {"/run/velasystemd/reason-conf/vela-reason.conf": {"fail": 28},
                             "/run/systemd/generator/b.service.d/vela-pack.conf": false}, )") +
           FAILING_TOUCH + ", " + FAILING_EXEC + "}";
}

std::vector<Message> QueryMessages() {
    std::vector<Message> messages;
    for (const std::string unit : {"a.service", "b.service", "c.service", "x.target"}) {
        messages.push_back({MASKING, "Fail to get SupportKey in [" + unit + "]."});
        messages.push_back({DEFAULTS, "Fail to VELASystemdIsDefaultEnableGet in [" + unit + "]."});
        messages.push_back({STAY_ALIVE, "Fail to get StayAliveWhenIsolateToTargets in [" + unit + "]."});
        messages.push_back({PACKING, "Fail to get VELASystemdPackedInGet in [" + unit + "]."});
    }
    // Only a target is asked what it carries.
    messages.push_back({STAY_ALIVE, "Fail to get StayAliveUnitsWhenIsolated in [x.target]."});
    return messages;
}

std::vector<Message> Joined(std::vector<Message> messages, const std::vector<Message>& more) {
    messages.insert(messages.end(), more.begin(), more.end());
    return messages;
}

std::vector<FaultCase> EverythingAtOnce() {
    const std::vector<std::string> migration = {EXEC_MIGRATE, EXEC_UPSTART, ENABLE_FTPD, DISABLE_NTPD, EXEC_SYSTEMD};
    return {
        {"every query fails with a logged code", EverythingFails("31"), 0,
         Joined(Joined(QueryMessages(), TouchMessages()),
                {{REASONS, "Fail to list service units.[0x001F reason.cpp:9]"}}),
         NOTHING, {}, migration, false},
        {"every query fails with 0x700", EverythingFails("\"0x700\""), 0,
         Joined(TouchMessages(), {{REASONS, "Fail to list service units.[0x0700 reason.cpp:9]"}}), NOTHING, {},
         migration, false},
        {"every step after the queries fails", EveryLaterStepFails(), 0,
         Joined(TouchMessages(), {{DEFAULTS, "Fail to enable unit [b.service]."},
                                  {WANTS, "Fail to get [a.service] enable status."},
                                  {REASONS, "Fail to create [/run/velasystemd/reason-conf/vela-reason.conf]."}}),
         {Early("a.service.d"), Early("b.service.d"), REASON_OUT, Normal("b.service.d"), Normal("x.target.wants"),
          Normal("y.target.wants")},
         {}, Then(migration, {ENABLE_B}), false, {REASON_FILE.substr(1)}},
    };
}

// What an upgrade boot leaves besides the tasks' output: the flags (or only
// their directory), and the legacy configuration gone.
TreeSnapshot UpgradeExpectation(const TreeSnapshot& before, const FaultCase& c) {
    TreeSnapshot expected = ExpectedTree(before, c);
    RemoveSubtree(expected, std::string(OVERRIDE_DIR).substr(1));
    RemoveSubtree(expected, std::string(CONF_DIR).substr(1));
    if (c.flagsMade) {
        return Union(expected, UpgradeOutput());
    }
    expected[FLAGS_OUT] = Dir();
    return expected;
}

class OnUpgradeBoot : public ::testing::TestWithParam<FaultCase> {};

TEST_P(OnUpgradeBoot, LeavesExactlyItsTrace) {
    const FaultCase& c = GetParam();
    FaultSandbox sandbox;
    PrepareBasePlatform(sandbox.Box());
    PrepareUpgradeBoot(sandbox.Box());
    const Json::Value base = MergeScript(ParseJson(BASE_SCRIPT), ParseJson(UPGRADE_SCRIPT));
    sandbox.WriteScript(MergeScript(base, ParseJson(c.script)));
    const FaultRun run = sandbox.Run();
    const std::vector<std::string> legacyDirs = {std::string(OVERRIDE_DIR).substr(1), std::string(CONF_DIR).substr(1)};
    CheckCase(c, run, UpgradeExpectation(run.before, c), legacyDirs);
}

INSTANTIATE_TEST_SUITE_P(EachMigrationFailureAlone, OnUpgradeBoot, ::testing::ValuesIn(MigrationFailures()), NameOf);
INSTANTIATE_TEST_SUITE_P(EverythingAtOnce, OnUpgradeBoot, ::testing::ValuesIn(EverythingAtOnce()), NameOf);

}  // namespace
}  // namespace faults
