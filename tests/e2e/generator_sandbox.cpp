#include "generator_sandbox.h"

#include <cstdio>
#include <fstream>
#include <set>

#include "preload.h"

namespace e2e {

const char* const DRIVER_SOURCE = "vela-system-generator.cpp";
const char* const GENERATOR_IDENT = "vela-system-generator";

namespace {

constexpr int LOG_ERR_USER = 11;  // facility LOG_USER (8) + LOG_ERR (3)
const char* const SCRIPT_NAME = "script.json";
const char* const RECORD_NAME = "record";

const char* const LOG_TAG = " velasystemd: ";
const char* const SOURCE_SUFFIX = ".cpp";

// A bare source file name: letters, digits, "_", "." and "-", ending in ".cpp".
bool IsBareSourceName(const std::string& name) {
    const std::string suffix = SOURCE_SUFFIX;
    return name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0 &&
           name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-") ==
               std::string::npos;
}

void ExpectLogLinesWellFormed(const std::vector<sandbox::SyslogLine>& log, const std::string& ident) {
    for (const sandbox::SyslogLine& line : log) {
        EXPECT_EQ(line.priority, LOG_ERR_USER) << line.raw;
        EXPECT_EQ(line.ident, ident) << line.raw;
        const LogMessage message = SplitLogMessage(line.message);
        EXPECT_TRUE(IsBareSourceName(message.file)) << line.raw;
        EXPECT_GT(message.line, 0) << line.raw;
    }
}

}  // namespace

std::string UsageText(const std::string& name) {
    return "Velora system generator.\n"
           "\n"
           "usage:\n"
           "    " + name + " normal-dir early-dir late-dir\n"
           "\n"
           "see systemd.generator(7) for detailed usage.\n";
}

std::vector<int> GeneratorRun::Pids() const {
    std::vector<int> pids;
    std::set<int> seen;
    for (const scripted::Call& call : calls) {
        if (seen.insert(call.pid).second) {
            pids.push_back(call.pid);
        }
    }
    return pids;
}

std::vector<std::string> GeneratorRun::CallsOf(int pid) const {
    std::vector<std::string> texts;
    for (const scripted::Call& call : calls) {
        if (call.pid == pid) {
            texts.push_back(call.text);
        }
    }
    return texts;
}

LogMessage SplitLogMessage(const std::string& message) {
    const LogMessage unsplit{"", 0, message};
    size_t colon = message.find(':');
    size_t tag = message.find(LOG_TAG);
    if (colon == std::string::npos || tag == std::string::npos || tag <= colon + 1) {
        return unsplit;
    }
    const std::string line = message.substr(colon + 1, tag - colon - 1);
    if (line.find_first_not_of("0123456789") != std::string::npos || line.size() > 9) {
        return unsplit;
    }
    return {message.substr(0, colon), std::stoi(line), message.substr(tag + std::string(LOG_TAG).size())};
}

std::vector<LogMessage> GeneratorRun::Messages() const {
    std::vector<LogMessage> messages;
    for (const sandbox::SyslogLine& line : result.log) {
        messages.push_back(SplitLogMessage(line.message));
    }
    return messages;
}

std::vector<std::string> GeneratorRun::MessageTexts() const {
    std::vector<std::string> texts;
    for (const LogMessage& message : Messages()) {
        texts.push_back(message.file + ": " + message.text);
    }
    return texts;
}

GeneratorEndToEnd::GeneratorEndToEnd() : state_("vela-e2e"), box_(state_.Path()) {
    box_.BindReadOnly(VELA_BUILD_DIR);
    box_.SetEnv("LD_PRELOAD", sandbox::PreloadList(VELA_SCRIPTED_LIBRARY));
    box_.SetEnv("VELA_SCRIPT", sandbox::Sandbox::ControlPath(SCRIPT_NAME));
    box_.SetEnv("VELA_RECORD", sandbox::Sandbox::ControlPath(RECORD_NAME));
    WriteScript("{}");
}

void GeneratorEndToEnd::WriteScript(const std::string& json) {
    std::ofstream(box_.ControlHostPath(SCRIPT_NAME)) << json;
}

GeneratorRun GeneratorEndToEnd::Run(const std::vector<std::string>& args) { return RunProgram(VELA_GENERATOR, args); }

GeneratorRun GeneratorEndToEnd::RunProgram(const std::string& program, const std::vector<std::string>& args) {
    std::vector<std::string> command = {program};
    command.insert(command.end(), args.begin(), args.end());
    return RunCommand(command);
}

GeneratorRun GeneratorEndToEnd::RunWithGeneratorDirs() {
    return Run({sandbox::Sandbox::NORMAL_DIR, sandbox::Sandbox::EARLY_DIR, sandbox::Sandbox::LATE_DIR});
}

sandbox::TreeSnapshot GeneratorEndToEnd::WholeTree() const { return box_.SnapshotPrivateTrees(); }

GeneratorRun GeneratorEndToEnd::RunCommand(const std::vector<std::string>& command) {
    // The late directory is part of the call but never the generator's to write.
    const bool wellCalled = command.size() == 4;
    const std::string lateDirHost = wellCalled ? box_.HostPath(command[3]) : "";
    const sandbox::TreeSnapshot lateBefore = sandbox::SnapshotTree(lateDirHost);
    std::remove(box_.ControlHostPath(RECORD_NAME).c_str());

    GeneratorRun run{box_.Run(command), scripted::RecordedCalls(box_.ControlHostPath(RECORD_NAME))};

    EXPECT_FALSE(run.result.timedOut);
    EXPECT_EQ(run.result.out, "");
    ExpectLogLinesWellFormed(run.result.log, command[0].substr(command[0].rfind('/') + 1));
    if (wellCalled) {
        EXPECT_EQ(run.result.err, "") << "a well-formed call prints nothing";
        EXPECT_EQ(sandbox::DiffTrees(lateBefore, sandbox::SnapshotTree(lateDirHost)), "")
            << "the late directory " << command[3] << " changed";
    }
    return run;
}

}  // namespace e2e
