// Reading the core library's error state after a failed platform call.
#pragma once

#include "constants.h"
#include "core_library.h"

// The error state as one record. Read line, then file, then code, the order in
// which the platform expects its error state to be consulted.
struct ErrorState {
    int line;
    const char* file;
    int code;
};

inline ErrorState ReadErrorState() {
    ErrorState state;
    state.line = VLIBCErrorGetLine();
    state.file = VLIBCErrorGetFile();
    state.code = VLIBCErrGet();
    return state;
}

// After a failed per-unit metadata query: whether the failure deserves a log
// line. Units without platform policy fail with a code that is expected.
inline bool IsFailureWorthReporting() {
    return VLIBCErrGet() != ERR_NO_PLATFORM_POLICY;
}
