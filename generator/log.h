// The generator's one way to report a failure: a syslog line at LOG_ERR,
// prefixed with the source file name and line of the call site.
#pragma once

#include <syslog.h>

// Logs `fmt` (a string literal; "%m" is the text of errno) with its arguments.
// The log is never opened: the system's default identity and facility apply.
#define VLOG(fmt, ...) \
    syslog(LOG_ERR, "%s:%d velasystemd: " fmt, __FILE_NAME__, __LINE__, ##__VA_ARGS__)
