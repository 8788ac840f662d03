#include "private_run.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "scripted_platform.h"

namespace unit_test {

namespace {

bool privateRun = false;

std::vector<RunRemoval>& Removals() {
    static std::vector<RunRemoval> removals;
    return removals;
}

bool WriteProcFile(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.close();
    return !file.fail();
}

// Without the right to make a mount namespace, a user namespace brings it.
bool EnterMountNamespace() {
    if (unshare(CLONE_NEWNS) == 0) {
        return true;
    }
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && WriteProcFile("/proc/self/setgroups", "deny") &&
           WriteProcFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") &&
           WriteProcFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

bool IsUnderRun(const char* path) { return path != nullptr && std::strncmp(path, "/run/", 5) == 0; }

}  // namespace

bool EnterPrivateRun() {
    privateRun = EnterMountNamespace() && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0;
    return privateRun;
}

bool HasPrivateRun() { return privateRun; }

std::vector<RunRemoval> RunRemovals() { return Removals(); }

void ClearRunRemovals() { Removals().clear(); }

}  // namespace unit_test

// Takes the place of the C library's unlink for the whole binary.
extern "C" int unlink(const char* path) noexcept {
    if (unit_test::IsUnderRun(path)) {
        unit_test::Removals().push_back({path, scripted::Calls()});
        if (!unit_test::privateRun) {
            errno = ENOENT;
            return -1;
        }
    }
    return unlinkat(AT_FDCWD, path, 0);
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!unit_test::EnterPrivateRun()) {
        std::fprintf(stderr, "No private /run here: the tests that write the reason drop-in are skipped.\n");
    }
    return RUN_ALL_TESTS();
}
