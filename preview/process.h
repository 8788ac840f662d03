// Child processes of the preview: the one place that forks and ends a child
// with _exit, and the waiting with a time limit.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "model.h"

namespace preview {

// Runs `body` in a child process, which ends with _exit(body()). Returns the
// child's pid, or -1 with errno set.
pid_t StartChild(const std::function<int()>& body);

// Waits for `pid` at most `timeoutMs` milliseconds (no limit when negative),
// meanwhile reading syslog datagrams from `logFd` (-1: none) into `log`. Past
// the limit it kills every other process of the pid namespace, the child's
// descendants included.
Outcome WaitForChild(pid_t pid, int timeoutMs, int logFd, std::vector<std::string>& log);

// Runs `body` in a child and returns in `text` what it returned, passed
// through a pipe. False when the child could not be run or failed.
bool CollectFromChild(const std::function<std::string()>& body, std::string& text);

// Ends every process of the pid namespace but the caller (which must be its
// first process) and reaps them.
void EndOtherProcesses();

}  // namespace preview
