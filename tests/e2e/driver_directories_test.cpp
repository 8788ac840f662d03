// The three directories are taken as given: never checked, created, trimmed,
// and the late one never written. Log lines name the source file, not a path.
#include <string>
#include <vector>

#include "generator_sandbox.h"

namespace e2e {
namespace {

using sandbox::Dir;
using sandbox::File;
using sandbox::Link;
using sandbox::Sandbox;

bool WasCalled(const GeneratorRun& run, const std::string& text) {
    for (const scripted::Call& call : run.calls) {
        if (call.text == text) {
            return true;
        }
    }
    return false;
}

using DriverDirectories = GeneratorEndToEnd;

TEST_F(DriverDirectories, MissingDirectoriesAreAcceptedAndNotCreated) {
    // The reason link is refused, so that whatever appears below /run/absent
    // would have been made by the generator itself.
    WriteScript(R"({"units": ["a.service"], "services_with_reason": ["a.service"],
                    "link_vela_reason": {"/run/absent/early/a.service.d/": false}})");
    GeneratorRun run = Run({"/run/absent/normal", "/run/absent/early", "/run/absent/late"});
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_TRUE(run.result.log.empty());
    EXPECT_TRUE(WasCalled(run, std::string("VELA::Systemd::LinkVelaReason(/run/absent/early/a.service.d/, ") +
                                   REASON_DROP_IN + ")"))
        << "the early directory reached its task";
    EXPECT_EQ(box_.Snapshot("/run").count("absent"), 0u);
}

TEST_F(DriverDirectories, DirectoriesReachTheTasksVerbatim) {
    WriteScript(R"({"units": ["b.service"], "packed_in": {"b.service": ["x.target"]},
                    "services_with_reason": ["a.service"]})");
    GeneratorRun run = Run({"/run/systemd/generator/", "/run/systemd/generator.early/", "/run/systemd/generator.late/"});
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_TRUE(WasCalled(run, "VELA::Systemd::AddUnitSection(/run/systemd/generator//b.service.d/, vela-pack.conf, "
                               "Unit, {PartOf=x.target, ReloadPropagatedFrom=x.target})"));
    EXPECT_TRUE(WasCalled(run, std::string("VELA::Systemd::LinkVelaReason(/run/systemd/generator.early//a.service.d/, ") +
                                   REASON_DROP_IN + ")"));
}

TEST_F(DriverDirectories, LateDirectoryIsNeverWritten) {
    box_.WriteFile(std::string(Sandbox::LATE_DIR) + "/keep.conf", "kept\n");
    box_.MakeDirectory(std::string(Sandbox::LATE_DIR) + "/x.target.wants");
    WriteScript(R"({
        "units": ["a.service", "b.service", "x.target"],
        "support": {"a.service": false, "b.service": {"fail": 9}},
        "packed_in": {"b.service": ["x.target"]},
        "belongs_to": {"a.service": ["x.target"]},
        "enable_status": {"a.service": 1, "b.service": 2},
        "services_with_reason": ["a.service", "b.service"]
    })");
    GeneratorRun run = RunWithGeneratorDirs();
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_FALSE(box_.Snapshot(Sandbox::NORMAL_DIR).empty()) << "the tasks did write elsewhere";
    EXPECT_EQ(sandbox::DiffTrees({{"keep.conf", File("kept\n")}, {"x.target.wants", Dir()}},
                                 box_.Snapshot(Sandbox::LATE_DIR)),
              "");
}

TEST_F(DriverDirectories, LogLinesNameTheSourceFileNotAPath) {
    // One line from the driver (the fifth fork) and one from a task.
    WriteScript(R"({"units": ["b.service"], "support": {"b.service": {"fail": 9}},
                    "fork": {"fail": 17, "file": "f.cpp", "line": 1, "calls": [5]}})");
    GeneratorRun run = RunWithGeneratorDirs();
    std::vector<LogMessage> messages = run.Messages();
    ASSERT_EQ(messages.size(), 2u);
    for (const LogMessage& message : messages) {
        EXPECT_EQ(message.file.find('/'), std::string::npos) << message.file;
        EXPECT_GT(message.line, 0);
    }
    const LogMessage& driverLine = messages[0].file == DRIVER_SOURCE ? messages[0] : messages[1];
    EXPECT_EQ(driverLine.file, DRIVER_SOURCE);
    EXPECT_EQ(driverLine.text, "Fail to fork.[0x0011 f.cpp:1]");
    for (const sandbox::SyslogLine& line : run.result.log) {
        EXPECT_EQ(line.ident, GENERATOR_IDENT);
    }
}

}  // namespace
}  // namespace e2e
