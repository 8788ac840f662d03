// Child processes: the one place where the generator forks and leaves a child.
#pragma once

#include <functional>

// Runs `work` in a new child process and ends the child with _exit(0), so that
// no exit handler, static destructor or stdio flush of the parent runs twice.
// Returns in the caller what the core library's fork returned: the child's pid,
// or a negative value (error state set) when no child could be made.
int RunInChild(const std::function<void()>& work);

// Waits for children until none is left. Their statuses are not looked at.
void ReapChildren();
