// The preview's verdict: the generator ran and exited 0, and under --strict
// it logged nothing and the loader did not warn.
#include <string>

#include "constants.h"
#include "report.h"

namespace preview {

std::vector<std::string> StrictFindings(const Report& report) {
  std::vector<std::string> findings;
  for (const RunReport& run : report.runs) {
    for (const std::string& line : run.log) findings.push_back("log: " + line);
    if (!run.output.empty()) findings.push_back("output: " + run.output.substr(0, run.output.find('\n')));
  }
  for (const std::string& warning : report.verify.warnings) findings.push_back("loader: " + warning);
  if (!report.verify.failure.empty()) findings.push_back("loader: " + report.verify.failure);
  return findings;
}

int ExitStatusOf(const Report& report) {
  for (const RunReport& run : report.runs)
    if (!run.outcome.Succeeded()) return EXIT_GENERATOR_FAILED;
  if (report.strict && !StrictFindings(report).empty()) return EXIT_GENERATOR_FAILED;
  return 0;
}

std::string DescribeOutcome(const Outcome& outcome, int timeoutSeconds) {
  if (!outcome.started) return "not run";
  if (outcome.timedOut) return "killed after the time limit of " + std::to_string(timeoutSeconds) + " s";
  if (outcome.signal != 0) return "killed by signal " + std::to_string(outcome.signal);
  return "exit status " + std::to_string(outcome.exitStatus);
}

}  // namespace preview
