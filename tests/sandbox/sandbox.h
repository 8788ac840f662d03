// A private system to run one program in (the built generator): bubblewrap
// with its own /run, /var, /usr/vela, /.old_patch_info, /etc/systemd,
// /etc/velasystemd and /tmp, all backed by a host state directory, so that a
// test prepares files before the run and reads the whole resulting tree after.
// /dev/log is a socket of ours: the program's real syslog lines are caught.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "syslog_capture.h"
#include "tree_snapshot.h"

namespace sandbox {

struct RunResult {
    bool timedOut = false;
    int exitStatus = -1;  // the program's exit status; 128 + n when signal n ended it
    int termSignal = 0;   // set when the sandbox itself was ended by a signal
    std::string out;
    std::string err;
    std::vector<SyslogLine> log;  // in arrival order
};

class Sandbox {
public:
    // The generator directories, made empty when the state directory is new.
    static const char* const NORMAL_DIR;  // /run/systemd/generator
    static const char* const EARLY_DIR;   // /run/systemd/generator.early
    static const char* const LATE_DIR;    // /run/systemd/generator.late
    // Where the unit files of the platform go by default.
    static const char* const SYSTEM_UNIT_DIR;  // /etc/systemd/system
    // A writable directory outside every private tree, for what the test
    // hands in and takes out (script, record): /.vela-test.
    static const char* const CONTROL_DIR;

    // Uses `stateDir` on the host, creating it when missing and keeping what is
    // in it: root/ holds the private trees, control/ the control directory.
    explicit Sandbox(const std::string& stateDir);

    // Host path behind `insidePath`, which must lie in a private path. Throws
    // std::invalid_argument otherwise.
    std::string HostPath(const std::string& insidePath) const;
    // Host path of a file in the control directory, and its path inside.
    std::string ControlHostPath(const std::string& name) const;
    static std::string ControlPath(const std::string& name);

    // Makes `insidePath` private as well (for instance /usr/lib/systemd/system).
    void AddPrivatePath(const std::string& insidePath);
    // Shows a host path read-only at the same place (the build directory).
    void BindReadOnly(const std::string& hostPath);
    // Sets one variable; the environment holds nothing else but PATH.
    void SetEnv(const std::string& name, const std::string& value);
    void SetTimeLimit(std::chrono::milliseconds limit);

    // Prepare the private trees; parents are made as needed (mode 0755).
    void WriteFile(const std::string& insidePath, const std::string& content, unsigned mode = 0644) const;
    void MakeDirectory(const std::string& insidePath, unsigned mode = 0755) const;
    void MakeSymlink(const std::string& insidePath, const std::string& target) const;

    // Places a unit file, or every file below host directory `hostDir` (links
    // kept as links), into a system unit directory, making it private first.
    void InstallUnitFile(const std::string& name, const std::string& content,
                         const std::string& unitDir = SYSTEM_UNIT_DIR);
    void InstallUnitFiles(const std::string& hostDir, const std::string& unitDir = SYSTEM_UNIT_DIR);

    // The tree below `insidePath` as it is now.
    TreeSnapshot Snapshot(const std::string& insidePath) const;
    // All private trees at once, paths relative to / ("run/systemd/generator").
    TreeSnapshot SnapshotPrivateTrees() const;

    // Runs `command` in the sandbox and waits for it within the time limit.
    RunResult Run(const std::vector<std::string>& command) const;

    // The bubblewrap command line Run would use.
    std::vector<std::string> CommandLine(const std::vector<std::string>& command) const;

private:
    std::string stateDir_;
    std::set<std::string> privatePaths_;
    std::vector<std::string> readOnlyBinds_;
    std::map<std::string, std::string> environment_;
    std::chrono::milliseconds timeLimit_;
};

}  // namespace sandbox
