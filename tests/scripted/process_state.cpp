#include "process_state.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "record.h"
#include "scripted_platform.h"

namespace scripted {
namespace detail {

namespace {

constexpr const char* SCRIPT_VARIABLE = "VELA_SCRIPT";
constexpr const char* RECORD_VARIABLE = "VELA_RECORD";

ProcessState& State() {
    static ProcessState state;
    return state;
}

// A broken script or record is a broken test: stop at once and say why.
[[noreturn]] void Die(const std::string& why) {
    std::fprintf(stderr, "scripted platform: %s\n", why.c_str());
    std::abort();
}

void UseScript(ProcessState& state, const std::string& text) {
    std::string error;
    if (!ParseScript(text, state.script, error)) {
        Die("bad script: " + error);
    }
    state.loaded = true;
}

void OpenRecord(ProcessState& state, const std::string& path, int extraFlags) {
    if (state.recordFd >= 0) {
        close(state.recordFd);
    }
    state.recordPath = path;
    state.recordFd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | extraFlags, 0644);
    if (state.recordFd < 0) {
        Die("cannot open the record " + path);
    }
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        Die("cannot read the script " + path);
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void LoadFromEnvironment(ProcessState& state) {
    const char* scriptPath = std::getenv(SCRIPT_VARIABLE);
    UseScript(state, scriptPath ? ReadWholeFile(scriptPath) : "{}");
    const char* recordPath = std::getenv(RECORD_VARIABLE);
    if (recordPath) {
        OpenRecord(state, recordPath, 0);
    }
}

// Holds a call up after it was recorded, so that a test can see what waits
// for it and what does not.
void DelayAsScripted(const Json::Value& script, const char* name) {
    const Json::Value& delay = Answer(script, "delay_ms", name);
    if (delay.isInt()) {
        usleep(static_cast<useconds_t>(delay.asInt()) * 1000);
    }
}

}  // namespace

ProcessState& BeginCall(const char* name, const std::vector<std::string>& args) {
    ProcessState& state = State();
    if (!state.loaded) {
        LoadFromEnvironment(state);
    }
    AppendRecordLine(state.recordFd, FormatCall(name, args));
    DelayAsScripted(state.script, name);
    return state;
}

void SetError(const Failure& failure) {
    State().error = {failure.code, failure.file, failure.line};
}

void SetErrorFromErrno(int line) {
    State().error = {errno, DEFAULT_FAILURE_FILE, line};
}

const std::string& RecordPath() { return State().recordPath; }

}  // namespace detail

void Install(const std::string& scriptJson, const std::string& recordPath) {
    detail::ProcessState& state = detail::State();
    detail::UseScript(state, scriptJson);
    detail::OpenRecord(state, recordPath, O_TRUNC);
    state.forkCalls = 0;
    state.error = {};
}

}  // namespace scripted
