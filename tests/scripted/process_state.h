// What the scripted platform keeps per process: the script, the open record,
// the error state and the count of fork calls. A forked child starts with a
// copy and counts its own forks from zero.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "script.h"

namespace scripted {
namespace detail {

struct ErrorRecord {
    int code = 0;
    std::string file;
    int line = 0;
};

struct ProcessState {
    Json::Value script{Json::objectValue};
    bool loaded = false;
    std::string recordPath;
    int recordFd = -1;
    int forkCalls = 0;
    ErrorRecord error;
};

// Starts a platform call: loads the script from $VELA_SCRIPT and opens
// $VELA_RECORD when this process has no script yet, then appends
// "Name(args)" to the record. `args` are formatted already.
ProcessState& BeginCall(const char* name, const std::vector<std::string>& args);

// Puts `failure` into the error state.
void SetError(const Failure& failure);

// Puts a failed system call of a real effect into the error state: errno as the
// code, the scripted platform's default file and the given line.
void SetErrorFromErrno(int line);

// The record of this process ("" when there is none).
const std::string& RecordPath();

}  // namespace detail
}  // namespace scripted
