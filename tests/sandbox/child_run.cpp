#include "child_run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

namespace sandbox {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int READ_END = 0;
constexpr int WRITE_END = 1;
constexpr int EXEC_FAILED = 127;
constexpr mode_t CHILD_UMASK = 022;
// After the child has ended, how long its output may still take to close.
constexpr std::chrono::milliseconds OUTPUT_GRACE{2000};
constexpr std::chrono::milliseconds POLL_SLICE{50};

struct Pipe {
    int fds[2];
};

Pipe MakePipe() {
    Pipe p;
    if (pipe2(p.fds, O_CLOEXEC) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    return p;
}

[[noreturn]] void ExecChild(const std::vector<std::string>& argv, const Pipe& out, const Pipe& err) {
    int devNull = open("/dev/null", O_RDONLY);
    dup2(devNull, STDIN_FILENO);
    dup2(out.fds[WRITE_END], STDOUT_FILENO);
    dup2(err.fds[WRITE_END], STDERR_FILENO);
    umask(CHILD_UMASK);
    std::vector<char*> args;
    for (const std::string& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    execvp(args[0], args.data());
    std::fprintf(stderr, "cannot run %s\n", args[0]);
    _exit(EXEC_FAILED);
}

// Reads what is there; false at end of file.
bool ReadSome(int fd, std::string& into) {
    char buffer[8192];
    ssize_t size = read(fd, buffer, sizeof buffer);
    if (size > 0) {
        into.append(buffer, static_cast<size_t>(size));
        return true;
    }
    return size < 0 && errno == EINTR;
}

void RecordStatus(int status, ChildOutcome& outcome) {
    if (WIFEXITED(status)) {
        outcome.exitStatus = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        outcome.termSignal = WTERMSIG(status);
    }
}

// Watches a running child: reads its two output pipes and the watched
// descriptor until the child has ended and closed its output, or time is up.
class ChildWatch {
public:
    ChildWatch(pid_t pid, int outFd, int errFd, const WatchedFd& watched, Clock::time_point deadline)
        : pid_(pid), watched_(watched), deadline_(deadline),
          fds_{{outFd, POLLIN, 0}, {errFd, POLLIN, 0}, {watched.fd, POLLIN, 0}} {}

    ~ChildWatch() {
        for (int i = 0; i < 2; ++i) {
            CloseOutput(i);
        }
    }

    // Runs until the end; fills `outcome`.
    void Watch(ChildOutcome& outcome) {
        std::string* sinks[2] = {&outcome.out, &outcome.err};
        while (!Finished(outcome)) {
            if (poll(fds_, 3, static_cast<int>(POLL_SLICE.count())) <= 0) {
                continue;
            }
            for (int i = 0; i < 2; ++i) {
                if (fds_[i].fd >= 0 && fds_[i].revents && !ReadSome(fds_[i].fd, *sinks[i])) {
                    CloseOutput(i);
                }
            }
            if (fds_[2].revents & POLLIN) {
                watched_.onReadable();
            }
        }
        watched_.onReadable();
    }

private:
    // Reaps the child when it has ended and kills it past the deadline.
    bool Finished(ChildOutcome& outcome) {
        int status = 0;
        if (!exited_ && waitpid(pid_, &status, WNOHANG) == pid_) {
            RecordStatus(status, outcome);
            exited_ = true;
            exitedAt_ = Clock::now();
        }
        if (exited_) {
            return (fds_[0].fd < 0 && fds_[1].fd < 0) || Clock::now() - exitedAt_ > OUTPUT_GRACE;
        }
        if (Clock::now() > deadline_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            outcome.timedOut = true;
            return true;
        }
        return false;
    }

    void CloseOutput(int i) {
        if (fds_[i].fd >= 0) {
            close(fds_[i].fd);
            fds_[i].fd = -1;
        }
    }

    pid_t pid_;
    const WatchedFd& watched_;
    Clock::time_point deadline_;
    pollfd fds_[3];
    bool exited_ = false;
    Clock::time_point exitedAt_{};
};

}  // namespace

ChildOutcome RunChild(const std::vector<std::string>& argv, std::chrono::milliseconds limit,
                      const WatchedFd& watched) {
    Pipe out = MakePipe();
    Pipe err = MakePipe();
    pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error("cannot fork");
    }
    if (pid == 0) {
        ExecChild(argv, out, err);
    }
    close(out.fds[WRITE_END]);
    close(err.fds[WRITE_END]);
    ChildOutcome outcome;
    ChildWatch(pid, out.fds[READ_END], err.fds[READ_END], watched, Clock::now() + limit).Watch(outcome);
    return outcome;
}

}  // namespace sandbox
