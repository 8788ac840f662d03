// The core library as the script says: error state, forks, program runs and
// flag files.
#include "core_library.h"

#include <unistd.h>

#include <string>

#include "file_effects.h"
#include "process_state.h"
#include "record.h"

using scripted::detail::BeginCall;
using scripted::detail::ProcessState;

namespace {

// True when the script's "fork" failure applies to this process's call number
// `call`: every call without "calls", otherwise only the calls listed.
bool ForkCallFails(const Json::Value& fork, int call) {
    if (!scripted::IsFailure(fork)) {
        return false;
    }
    if (!fork.isMember("calls")) {
        return true;
    }
    for (const Json::Value& failing : fork["calls"]) {
        if (failing.asInt() == call) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" {

int VLIBCErrGet(void) { return BeginCall("VLIBCErrGet", {}).error.code; }

const char* VLIBCErrorGetFile(void) { return BeginCall("VLIBCErrorGetFile", {}).error.file.c_str(); }

int VLIBCErrorGetLine(void) { return BeginCall("VLIBCErrorGetLine", {}).error.line; }

int VLIBCProcForkEx(int options) {
    ProcessState& state = BeginCall("VLIBCProcForkEx", {std::to_string(options)});
    const Json::Value& fork = state.script["fork"];
    if (ForkCallFails(fork, ++state.forkCalls)) {
        scripted::detail::SetError(scripted::ReadFailure(fork));
        return -1;
    }
    pid_t pid = ::fork();
    if (pid == 0) {
        state.forkCalls = 0;
    } else if (pid < 0) {
        scripted::detail::SetErrorFromErrno(__LINE__);
    }
    return pid;
}

int VLIBCExec(const char* program, const char* arg1, const char* arg2, const char* arg3,
              const char* arg4) {
    ProcessState& state = BeginCall(
        "VLIBCExec", {scripted::FormatText(program), scripted::FormatText(arg1), scripted::FormatText(arg2),
                      scripted::FormatText(arg3), scripted::FormatText(arg4)});
    const Json::Value& status = scripted::Answer(state.script, "exec", program ? program : "");
    return status.isInt() ? status.asInt() : 0;
}

int VLIBCFileTouch(const char* path) {
    ProcessState& state = BeginCall("VLIBCFileTouch", {scripted::FormatText(path)});
    const Json::Value& answer = scripted::Answer(state.script, "touch", path ? path : "");
    if (scripted::IsFailure(answer)) {
        scripted::detail::SetError(scripted::ReadFailure(answer));
        return -1;
    }
    if (!path || !scripted::TouchFile(path)) {
        scripted::detail::SetErrorFromErrno(__LINE__);
        return -1;
    }
    return 0;
}

}  // extern "C"
