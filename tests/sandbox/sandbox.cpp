#include "sandbox.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "bwrap_command.h"
#include "child_run.h"

namespace sandbox {

namespace fs = std::filesystem;

const char* const Sandbox::NORMAL_DIR = "/run/systemd/generator";
const char* const Sandbox::EARLY_DIR = "/run/systemd/generator.early";
const char* const Sandbox::LATE_DIR = "/run/systemd/generator.late";
const char* const Sandbox::SYSTEM_UNIT_DIR = "/etc/systemd/system";
const char* const Sandbox::CONTROL_DIR = "/.vela-test";

namespace {

const char* const ROOT_SUBDIR = "/root";
const char* const CONTROL_SUBDIR = "/control";
const char* const LOG_SOCKET_NAME = "/log.sock";
const char* const SEARCH_PATH = "/usr/sbin:/usr/bin:/sbin:/bin";
constexpr std::chrono::milliseconds DEFAULT_TIME_LIMIT{30000};

const std::vector<std::string>& DefaultPrivatePaths() {
    static const std::vector<std::string> paths = {"/run",          "/var",           "/usr/vela", "/.old_patch_info",
                                                   "/etc/systemd", "/etc/velasystemd", "/tmp"};
    return paths;
}

// mkdir -p, every directory made here getting `mode` whatever the umask.
void MakeDirectories(const fs::path& path, unsigned mode) {
    if (path.empty() || fs::is_directory(path)) {
        return;
    }
    MakeDirectories(path.parent_path(), mode);
    if (mkdir(path.c_str(), mode) != 0 || chmod(path.c_str(), mode) != 0) {
        throw std::runtime_error("cannot make directory " + path.string());
    }
}

bool IsAtOrBelow(const std::string& path, const std::string& dir) {
    return path == dir || (path.compare(0, dir.size(), dir) == 0 && path.size() > dir.size() && path[dir.size()] == '/');
}

std::string WithoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

}  // namespace

Sandbox::Sandbox(const std::string& stateDir)
    : stateDir_(WithoutTrailingSlash(stateDir)), environment_{{"PATH", SEARCH_PATH}}, timeLimit_(DEFAULT_TIME_LIMIT) {
    MakeDirectories(stateDir_ + CONTROL_SUBDIR, 0755);
    for (const std::string& path : DefaultPrivatePaths()) {
        AddPrivatePath(path);
    }
    for (const char* dir : {NORMAL_DIR, EARLY_DIR, LATE_DIR}) {
        MakeDirectory(dir);
    }
}

std::string Sandbox::HostPath(const std::string& insidePath) const {
    for (const std::string& privatePath : privatePaths_) {
        if (IsAtOrBelow(insidePath, privatePath)) {
            return stateDir_ + ROOT_SUBDIR + insidePath;
        }
    }
    throw std::invalid_argument(insidePath + " is not in a private path of the sandbox");
}

std::string Sandbox::ControlHostPath(const std::string& name) const {
    return stateDir_ + CONTROL_SUBDIR + "/" + name;
}

std::string Sandbox::ControlPath(const std::string& name) { return std::string(CONTROL_DIR) + "/" + name; }

void Sandbox::AddPrivatePath(const std::string& insidePath) {
    const std::string path = WithoutTrailingSlash(insidePath);
    if (path.empty() || path[0] != '/' || path == "/") {
        throw std::invalid_argument("a private path must be absolute and below /: " + insidePath);
    }
    privatePaths_.insert(path);
    MakeDirectories(stateDir_ + ROOT_SUBDIR + path, 0755);
}

void Sandbox::BindReadOnly(const std::string& hostPath) { readOnlyBinds_.push_back(WithoutTrailingSlash(hostPath)); }

void Sandbox::SetEnv(const std::string& name, const std::string& value) { environment_[name] = value; }

void Sandbox::SetTimeLimit(std::chrono::milliseconds limit) { timeLimit_ = limit; }

void Sandbox::WriteFile(const std::string& insidePath, const std::string& content, unsigned mode) const {
    const fs::path path = HostPath(insidePath);
    MakeDirectories(path.parent_path(), 0755);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file || chmod(path.c_str(), mode) != 0) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

void Sandbox::MakeDirectory(const std::string& insidePath, unsigned mode) const {
    MakeDirectories(HostPath(insidePath), mode);
}

void Sandbox::MakeSymlink(const std::string& insidePath, const std::string& target) const {
    const fs::path path = HostPath(insidePath);
    MakeDirectories(path.parent_path(), 0755);
    if (symlink(target.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("cannot link " + path.string());
    }
}

void Sandbox::InstallUnitFile(const std::string& name, const std::string& content, const std::string& unitDir) {
    AddPrivatePath(unitDir);
    WriteFile(WithoutTrailingSlash(unitDir) + "/" + name, content);
}

void Sandbox::InstallUnitFiles(const std::string& hostDir, const std::string& unitDir) {
    AddPrivatePath(unitDir);
    fs::copy(hostDir, HostPath(WithoutTrailingSlash(unitDir)),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks | fs::copy_options::overwrite_existing);
}

TreeSnapshot Sandbox::Snapshot(const std::string& insidePath) const { return SnapshotTree(HostPath(insidePath)); }

TreeSnapshot Sandbox::SnapshotPrivateTrees() const { return SnapshotTree(stateDir_ + ROOT_SUBDIR); }

std::vector<std::string> Sandbox::CommandLine(const std::vector<std::string>& command) const {
    SandboxLayout layout;
    layout.hostRoot = stateDir_ + ROOT_SUBDIR;
    layout.privatePaths = privatePaths_;
    layout.logSocket = stateDir_ + LOG_SOCKET_NAME;
    layout.readOnlyBinds = readOnlyBinds_;
    layout.writableBinds = {{stateDir_ + CONTROL_SUBDIR, CONTROL_DIR}};
    layout.environment = environment_;
    return BwrapCommand(layout, command);
}

RunResult Sandbox::Run(const std::vector<std::string>& command) const {
    SyslogSocket log(stateDir_ + LOG_SOCKET_NAME);
    RunResult result;
    ChildOutcome outcome = RunChild(CommandLine(command), timeLimit_, {log.Fd(), [&] { log.Drain(result.log); }});
    result.timedOut = outcome.timedOut;
    result.exitStatus = outcome.exitStatus;
    result.termSignal = outcome.termSignal;
    result.out = std::move(outcome.out);
    result.err = std::move(outcome.err);
    return result;
}

}  // namespace sandbox
