// The generator's log lines, caught in memory: this test binary defines
// syslog() and its relatives, so every line the code under test logs in this
// process lands here instead of in the system log.
#pragma once

#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <vector>

namespace unit_test {

struct LogLine {
    int priority;
    std::string text;  // formatted, "%m" expanded as syslog does
};

void PrintTo(const LogLine& line, std::ostream* out);

// The lines logged by this process since the last ClearLog(), in order.
std::vector<LogLine> LoggedLines();

void ClearLog();

// A LOG_ERR line "<sourceFile>:<line> velasystemd: <message>", where
// sourceFile is the generator's source file that logs it and line any number.
testing::Matcher<const LogLine&> IsLogLine(const std::string& sourceFile, const std::string& message);

}  // namespace unit_test
