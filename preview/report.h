// Writing the report: for a person, or as one JSON document.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "model.h"
#include "options.h"

namespace preview {

void WriteTextReport(const Report& report, std::ostream& out);
// The library's answers about the report's unit, each beside the output it
// led to in the first run.
void WriteUnitAnswers(const Report& report, std::ostream& out);

void WriteJsonReport(const Report& report, JsonStyle style, std::ostream& out);

// What --strict fails on: log lines of the generator's runs, output on its
// stdout or stderr, the loader's warnings.
std::vector<std::string> StrictFindings(const Report& report);

// How a process ended, in words ("exit status 0", "killed by signal 9").
std::string DescribeOutcome(const Outcome& outcome, int timeoutSeconds);

}  // namespace preview
