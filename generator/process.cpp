#include "process.h"

#include <sys/wait.h>
#include <unistd.h>

#include "constants.h"
#include "core_library.h"

int RunInChild(const std::function<void()>& work) {
    int pid = VLIBCProcForkEx(FORK_OPTIONS);
    if (pid == 0) {
        work();
        _exit(0);
    }
    return pid;
}

void ReapChildren() {
    while (waitpid(-1, nullptr, 0) > 0) {
    }
}
