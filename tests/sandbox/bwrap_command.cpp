#include "bwrap_command.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

namespace sandbox {

const char* const BWRAP_PROGRAM = "bwrap";

namespace {

// Made afresh by bubblewrap itself.
const std::set<std::string>& FreshMounts() {
    static const std::set<std::string> fresh = {"/dev", "/proc"};
    return fresh;
}

const std::vector<std::string>& IsolationOptions() {
    static const std::vector<std::string> options = {
        "--unshare-pid",  "--unshare-ipc",   "--unshare-uts", "--unshare-net", "--unshare-cgroup-try",
        "--die-with-parent", "--new-session", "--chdir",      "/",
    };
    return options;
}

bool IsBelow(const std::string& path, const std::string& dir) {
    return path.size() > dir.size() && path.compare(0, dir.size(), dir) == 0 &&
           (dir == "/" || path[dir.size()] == '/');
}

bool LeadsToPrivatePath(const std::string& path, const std::set<std::string>& privatePaths) {
    for (const std::string& privatePath : privatePaths) {
        if (IsBelow(privatePath, path)) {
            return true;
        }
    }
    return false;
}

std::string ReadLink(const std::string& path) {
    char target[4096];
    ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? "" : std::string(target, static_cast<size_t>(length));
}

std::string Join(const std::string& dir, const std::string& name) {
    return dir == "/" ? "/" + name : dir + "/" + name;
}

// Shows the entries of host directory `dir` inside the sandbox: private paths
// are skipped here, directories on the way to one are made on the tmpfs and
// walked, everything else is bound read-only (links recreated as links).
void ShowHostEntries(const std::string& dir, const SandboxLayout& layout, std::vector<std::string>& args) {
    DIR* listing = opendir(dir.c_str());
    if (!listing) {
        return;
    }
    std::set<std::string> names;
    while (const dirent* entry = readdir(listing)) {
        names.insert(entry->d_name);
    }
    closedir(listing);
    for (const std::string& name : names) {
        const std::string path = Join(dir, name);
        struct stat info;
        if (name == "." || name == ".." || FreshMounts().count(path) || layout.privatePaths.count(path) ||
            lstat(path.c_str(), &info) != 0) {
            continue;
        }
        if (S_ISLNK(info.st_mode)) {
            if (LeadsToPrivatePath(path, layout.privatePaths)) {
                throw std::runtime_error("a private path lies below the host link " + path);
            }
            args.insert(args.end(), {"--symlink", ReadLink(path), path});
        } else if (S_ISDIR(info.st_mode) && LeadsToPrivatePath(path, layout.privatePaths)) {
            args.insert(args.end(), {"--dir", path});
            ShowHostEntries(path, layout, args);
        } else {
            args.insert(args.end(), {"--ro-bind", path, path});
        }
    }
}

// A private path below another one is part of the outer one's tree already.
std::set<std::string> OutermostPrivatePaths(const std::set<std::string>& privatePaths) {
    std::set<std::string> outermost;
    for (const std::string& path : privatePaths) {
        bool nested = false;
        for (const std::string& other : privatePaths) {
            nested = nested || IsBelow(path, other);
        }
        if (!nested) {
            outermost.insert(path);
        }
    }
    return outermost;
}

}  // namespace

std::vector<std::string> BwrapCommand(const SandboxLayout& layout, const std::vector<std::string>& command) {
    SandboxLayout outer = layout;
    outer.privatePaths = OutermostPrivatePaths(layout.privatePaths);
    std::vector<std::string> args = {BWRAP_PROGRAM, "--tmpfs", "/"};
    ShowHostEntries("/", outer, args);
    args.insert(args.end(), {"--dev", "/dev", "--proc", "/proc"});
    for (const std::string& path : outer.privatePaths) {
        args.insert(args.end(), {"--bind", layout.hostRoot + path, path});
    }
    args.insert(args.end(), {"--bind", layout.logSocket, "/dev/log"});
    for (const std::string& path : layout.readOnlyBinds) {
        args.insert(args.end(), {"--ro-bind", path, path});
    }
    for (const auto& [host, inside] : layout.writableBinds) {
        args.insert(args.end(), {"--bind", host, inside});
    }
    // Nothing but the private paths and the control directory keeps a write,
    // so nothing else may take one: the tmpfs under everything goes read-only.
    args.insert(args.end(), {"--remount-ro", "/"});
    args.insert(args.end(), IsolationOptions().begin(), IsolationOptions().end());
    args.push_back("--clearenv");
    for (const auto& [name, value] : layout.environment) {
        args.insert(args.end(), {"--setenv", name, value});
    }
    args.push_back("--");
    args.insert(args.end(), command.begin(), command.end());
    return args;
}

}  // namespace sandbox
