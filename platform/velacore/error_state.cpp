// The process's error state: the last failure any platform library recorded.

#include <cstring>

#include "core_library.h"
#include "velacore/error_state.h"

namespace {

// Long enough for any source file name; a longer one is cut, never overrun.
constexpr size_t ERROR_FILE_CAPACITY = 256;

struct ErrorState {
    int code;
    char file[ERROR_FILE_CAPACITY];
    int line;
};

// One per process: a forked child starts with a copy of its parent's and then
// goes its own way, which is what a caller reading right after its own failed
// call needs.
ErrorState g_error_state = {0, "", 0};

}  // namespace

extern "C" void VLIBCErrSet(int code, const char* file, int line) {
    const char* name = file != nullptr ? file : "";
    size_t length = strnlen(name, ERROR_FILE_CAPACITY - 1);
    memcpy(g_error_state.file, name, length);
    g_error_state.file[length] = '\0';
    g_error_state.code = code;
    g_error_state.line = line;
}

extern "C" int VLIBCErrGet(void) {
    return g_error_state.code;
}

extern "C" const char* VLIBCErrorGetFile(void) {
    return g_error_state.file;
}

extern "C" int VLIBCErrorGetLine(void) {
    return g_error_state.line;
}
