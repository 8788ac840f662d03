// What the masking, stay-alive and pack tasks leave in the real generator
// directories when each runs in its own child: masks in the early directory,
// drop-ins and ".wants/" links in the normal one, and the log lines of the
// collisions between them.
#include <filesystem>
#include <string>
#include <vector>

#include "generator_sandbox.h"

namespace e2e {
namespace {

using sandbox::Dir;
using sandbox::File;
using sandbox::Link;
using sandbox::Sandbox;

const char* const MASKING_SOURCE = "mask_unsupported_units.cpp";
const char* const WRITER_SOURCE = "wants_link_writer.cpp";
const std::string UNIT_DIR = "/usr/lib/systemd/system/";

// The calls of the one process whose first call is `firstCall` (each task's
// first call names it); empty when no process began so.
std::vector<std::string> CallsOfTask(const GeneratorRun& run, const std::string& firstCall) {
    for (int pid : run.Pids()) {
        std::vector<std::string> calls = run.CallsOf(pid);
        if (calls.front() == firstCall) {
            return calls;
        }
    }
    return {};
}

using GeneratedMasks = GeneratorEndToEnd;

TEST_F(GeneratedMasks, UnitListedTwiceIsMaskedOnceAndTheSecondMaskFails) {
    WriteScript(R"({"units": ["u.service", "u.service"], "support": {"u.service": false}})");
    GeneratorRun run = RunWithGeneratorDirs();
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_EQ(run.MessageTexts(),
              std::vector<std::string>{std::string(MASKING_SOURCE) + ": Fail to mask unit [u.service] (File exists)."});
    EXPECT_EQ(sandbox::DiffTrees({{"u.service", Link("/dev/null")}}, box_.Snapshot(Sandbox::EARLY_DIR)), "");
}

TEST_F(GeneratedMasks, MissingEarlyDirGivesOneLinePerUnsupportedUnit) {
    WriteScript(R"({"units": ["a.service", "b.service", "c.service"],
                    "support": {"a.service": false, "b.service": true, "c.service": false}})");
    GeneratorRun run = Run({Sandbox::NORMAL_DIR, "/run/absent-early", Sandbox::LATE_DIR});
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_EQ(run.MessageTexts(),
              (std::vector<std::string>{
                  std::string(MASKING_SOURCE) + ": Fail to mask unit [a.service] (No such file or directory).",
                  std::string(MASKING_SOURCE) + ": Fail to mask unit [c.service] (No such file or directory)."}));
    EXPECT_EQ(box_.Snapshot("/run").count("absent-early"), 0u);
}

using GeneratedStayAliveLinks = GeneratorEndToEnd;

TEST_F(GeneratedStayAliveLinks, IsolationExampleLinksEnabledUnitsFromBothSides) {
    // a.service names x.target and is named by it; c.service is only carried
    // by the target and not listed; b.service is carried but not enabled.
    WriteScript(R"({
        "units": ["a.service", "b.service", "x.target"],
        "support": {"a.service": true, "b.service": true, "x.target": true},
        "belongs_to": {"a.service": ["x.target"], "b.service": [], "x.target": []},
        "type": {"a.service": "service", "b.service": "service", "x.target": "target"},
        "target_carries": {"x.target": ["a.service", "c.service", "b.service"]},
        "enable_status": {"a.service": 1, "b.service": 0, "c.service": 1}
    })");
    GeneratorRun run = RunWithGeneratorDirs();
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_TRUE(run.result.log.empty());
    EXPECT_EQ(CallsOfTask(run, "VELASystemdBelongsToGet(a.service)"),
              (std::vector<std::string>{
                  "VELASystemdBelongsToGet(a.service)", "VELASystemdBelongsToGet(b.service)",
                  "VELASystemdBelongsToGet(x.target)", "VELA::Systemd::UnitTypeGet(a.service)",
                  "VELA::Systemd::UnitTypeGet(b.service)", "VELA::Systemd::UnitTypeGet(x.target)",
                  "VELASystemdTargetCarriesGet(x.target)", "VELASystemdEnableStatusGetInGenerator(a.service)",
                  "VELA::Systemd::UnitPathGet(a.service)", "VELASystemdEnableStatusGetInGenerator(b.service)",
                  "VELASystemdEnableStatusGetInGenerator(c.service)", "VELA::Systemd::UnitPathGet(c.service)"}));
    EXPECT_EQ(sandbox::DiffTrees({{"x.target.wants", Dir()},
                                  {"x.target.wants/a.service", Link(UNIT_DIR + "a.service")},
                                  {"x.target.wants/c.service", Link(UNIT_DIR + "c.service")}},
                                 box_.Snapshot(Sandbox::NORMAL_DIR)),
              "");
    EXPECT_TRUE(box_.Snapshot(Sandbox::EARLY_DIR).empty());
}

using GeneratedPackDropIns = GeneratorEndToEnd;

TEST_F(GeneratedPackDropIns, PackExampleWritesOneDropInAndLinksTheEnabledUnit) {
    // b.service has the same packing units but is not enabled: drop-in only.
    WriteScript(R"({
        "units": ["a.service", "b.service"],
        "packed_in": {"a.service": ["y.target", "x.target", "y.target"], "b.service": ["x.target", "y.target"]},
        "enable_status": {"a.service": 1, "b.service": 0}
    })");
    GeneratorRun run = RunWithGeneratorDirs();
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_TRUE(run.result.log.empty());
    const std::string settings = "{PartOf=x.target y.target, ReloadPropagatedFrom=x.target y.target}";
    EXPECT_EQ(CallsOfTask(run, "VELASystemdPackedInGet(a.service)"),
              (std::vector<std::string>{
                  "VELASystemdPackedInGet(a.service)",
                  "VELA::Systemd::AddUnitSection(/run/systemd/generator/a.service.d/, vela-pack.conf, Unit, " +
                      settings + ")",
                  "VELASystemdEnableStatusGetInGenerator(a.service)", "VELA::Systemd::UnitPathGet(a.service)",
                  "VELA::Systemd::UnitPathGet(a.service)", "VELASystemdPackedInGet(b.service)",
                  "VELA::Systemd::AddUnitSection(/run/systemd/generator/b.service.d/, vela-pack.conf, Unit, " +
                      settings + ")",
                  "VELASystemdEnableStatusGetInGenerator(b.service)"}));
    const std::string dropIn = "[Unit]\nPartOf=x.target y.target\nReloadPropagatedFrom=x.target y.target\n";
    EXPECT_EQ(sandbox::DiffTrees({{"a.service.d", Dir()},
                                  {"a.service.d/vela-pack.conf", File(dropIn)},
                                  {"b.service.d", Dir()},
                                  {"b.service.d/vela-pack.conf", File(dropIn)},
                                  {"x.target.wants", Dir()},
                                  {"x.target.wants/a.service", Link(UNIT_DIR + "a.service")},
                                  {"y.target.wants", Dir()},
                                  {"y.target.wants/a.service", Link(UNIT_DIR + "a.service")}},
                                 box_.Snapshot(Sandbox::NORMAL_DIR)),
              "");
}

TEST_F(GeneratedPackDropIns, LinkMadeByBothLinkWritingTasksIsMadeOnceAndTheSecondLogged) {
    // a.service stays alive for x.target and is packed in it: both tasks make
    // the same link. Each delay lets the other task be first.
    for (const char* slowQuery : {"VELASystemdPackedInGet", "VELASystemdBelongsToGet"}) {
        SCOPED_TRACE(slowQuery);
        box_.MakeDirectory(Sandbox::NORMAL_DIR);
        WriteScript(std::string(R"({
            "units": ["a.service"],
            "belongs_to": {"a.service": ["x.target"]},
            "packed_in": {"a.service": ["x.target"]},
            "enable_status": {"a.service": 1},
            "delay_ms": {")") + slowQuery + R"(": 300}})");
        GeneratorRun run = RunWithGeneratorDirs();
        EXPECT_EQ(run.result.exitStatus, 0);
        EXPECT_EQ(run.MessageTexts(),
                  std::vector<std::string>{std::string(WRITER_SOURCE) +
                                           ": Fail to create link from [/run/systemd/generator/x.target.wants/] to "
                                           "[/usr/lib/systemd/system/a.service] (File exists)."});
        EXPECT_EQ(CallsOfTask(run, "VELASystemdBelongsToGet(a.service)").back(), "VELA::Systemd::UnitPathGet(a.service)");
        EXPECT_EQ(CallsOfTask(run, "VELASystemdPackedInGet(a.service)").back(), "VELA::Systemd::UnitPathGet(a.service)");
        EXPECT_EQ(sandbox::DiffTrees({{"a.service.d", Dir()},
                                      {"a.service.d/vela-pack.conf",
                                       File("[Unit]\nPartOf=x.target\nReloadPropagatedFrom=x.target\n")},
                                      {"x.target.wants", Dir()},
                                      {"x.target.wants/a.service", Link(UNIT_DIR + "a.service")}},
                                     box_.Snapshot(Sandbox::NORMAL_DIR)),
                  "");
        std::filesystem::remove_all(box_.HostPath(Sandbox::NORMAL_DIR));
    }
}

}  // namespace
}  // namespace e2e
