// Process creation for the platform's callers.

#include <unistd.h>

#include "core_library.h"
#include "velacore/error_state.h"

extern "C" int VLIBCProcForkEx(int options) {
    // The option word selects platform features that this system does not
    // have; a plain fork gives every caller the ordinary child it reaps.
    (void)options;
    pid_t pid = fork();
    if (pid < 0) {
        VLIBC_ERR_SET(VLIBC_ERR_FORK);
        return -1;
    }
    return pid;
}
