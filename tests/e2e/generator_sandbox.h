// Running the built generator in a sandbox with the scripted platform
// preloaded, and what every such run must show whatever the scenario.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sandbox.h"
#include "scripted_platform.h"
#include "temporary_dir.h"

namespace e2e {

// Record lines and paths that the end-to-end tests look for.
constexpr const char* LIST_UNITS = "VELASystemdListUnits()";
constexpr const char* FORK = "VLIBCProcForkEx(187)";
constexpr const char* REASON_DROP_IN = "/run/velasystemd/reason-conf/vela-reason.conf";
constexpr const char* REASON_CONTENT =
    "[Service]\nExecStartPre=/usr/vela/bin/velasystemctl check-service-reason %n\n";

// The generator's driver source file, as log lines name it.
extern const char* const DRIVER_SOURCE;
// The name glibc gives the generator's syslog lines.
extern const char* const GENERATOR_IDENT;

// The usage text, byte for byte, for program name `name`.
std::string UsageText(const std::string& name);

// A log message split at its prefix "<file>:<line> velasystemd: ".
struct LogMessage {
    std::string file;  // "" when the message has no such prefix
    int line;
    std::string text;
};

LogMessage SplitLogMessage(const std::string& message);

// What one run showed: its result, log and the platform calls it recorded.
struct GeneratorRun {
    sandbox::RunResult result;
    std::vector<scripted::Call> calls;

    // Process ids in the order of their first recorded call.
    std::vector<int> Pids() const;
    // The calls of one process, in order.
    std::vector<std::string> CallsOf(int pid) const;
    // The log messages, in arrival order, split at their prefix.
    std::vector<LogMessage> Messages() const;
    // The same as "<file>: <text>", for comparing whole logs at once.
    std::vector<std::string> MessageTexts() const;
};

class GeneratorEndToEnd : public ::testing::Test {
protected:
    GeneratorEndToEnd();

    // The script the preloaded platform reads in the next runs.
    void WriteScript(const std::string& json);

    // Runs the generator with `args` after the program name (its build path).
    // Checks what holds for every run: it ends within the time limit, writes
    // nothing to standard output, logs at LOG_ERR under the generator's name
    // with the source-file prefix, and leaves the late directory (the third of
    // three arguments) as it found it.
    GeneratorRun Run(const std::vector<std::string>& args);

    // The same with `program` as the program name (a link to the generator).
    GeneratorRun RunProgram(const std::string& program, const std::vector<std::string>& args);

    // The three standard generator directories.
    GeneratorRun RunWithGeneratorDirs();

    // Everything the generator could write: all private trees of the sandbox.
    sandbox::TreeSnapshot WholeTree() const;

    sandbox::TemporaryDir state_;
    sandbox::Sandbox box_;

private:
    GeneratorRun RunCommand(const std::vector<std::string>& command);
};

}  // namespace e2e
