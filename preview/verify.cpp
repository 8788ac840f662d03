// Reading the loader's messages. A warning about one of the files it loads
// begins with "PATH:LINE: ".
#include "verify.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "constants.h"
#include "process.h"

namespace preview {

namespace {

constexpr const char* ANALYZE = "systemd-analyze";
constexpr const char MASKED_PREFIX[] = "Unit ";
constexpr const char MASKED_SUFFIX[] = " is masked.";

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// The PATH of a line "PATH:LINE: message", or "".
std::string WarningPath(const std::string& line) {
  if (line.empty() || line[0] != '/') return "";
  std::string::size_type colon = line.find(':');
  std::string::size_type digits = colon == std::string::npos ? colon : line.find_first_not_of("0123456789", colon + 1);
  if (digits == std::string::npos || digits == colon + 1 || line.compare(digits, 2, ": ") != 0) return "";
  return line.substr(0, colon);
}

// "succeeded" or "failed ..." from the loader's line about the generator.
std::string GeneratorResult(const std::string& line) {
  std::string name = "/" + std::string(GENERATOR_NAME) + " ";
  std::string::size_type at = line.find(name);
  if (at == std::string::npos) return "";
  std::string result = line.substr(at + name.size());
  if (EndsWith(result, ".")) result.pop_back();
  return result == "succeeded" || result.compare(0, 6, "failed") == 0 ? result : "";
}

int ExecAnalyze(const Sandbox& sandbox, const std::vector<std::string>& units, const std::string& outputPath) {
  int output = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  int input = open("/dev/null", O_RDWR);
  if (output < 0 || input < 0 || dup2(input, 0) < 0 || dup2(input, 1) < 0 || dup2(output, 2) < 0) return EXEC_FAILED;
  setsid();
  if (chroot(sandbox.root.c_str()) < 0 || chdir("/") < 0) return EXEC_FAILED;
  std::vector<const char*> arguments = {ANALYZE, "verify", "--generators=yes", "--man=no"};
  for (const std::string& unit : units) arguments.push_back(unit.c_str());
  arguments.push_back(nullptr);
  std::string path = std::string("PATH=") + SANDBOX_PATH;
  const char* environment[] = {path.c_str(), "SYSTEMD_LOG_LEVEL=debug", "SYSTEMD_LOG_COLOR=0", nullptr};
  execvpe(ANALYZE, const_cast<char**>(arguments.data()), const_cast<char**>(environment));
  dprintf(2, "%s%s in the target: %s\n", CANNOT_RUN, ANALYZE, std::strerror(errno));
  return EXEC_FAILED;
}

// A warning counts when it is about the generator's output or the file of a
// unit loaded for it (or a drop-in of one), not about units loaded on the way.
bool IsAboutOurs(const std::string& path, const std::vector<std::string>& units) {
  if (path.compare(0, 5, "/run/") == 0 || path.compare(0, 23, "/tmp/systemd-temporary-") == 0) return true;
  std::string name = path.substr(path.rfind('/') + 1), dir = path.substr(0, path.rfind('/'));
  dir = dir.substr(dir.rfind('/') + 1);
  for (const std::string& unit : units)
    if (name == unit || dir == unit + ".d") return true;
  return false;
}

void ReadMessages(const std::string& outputPath, VerifyReport& report) {
  std::ifstream messages(outputPath);
  std::string line;
  while (std::getline(messages, line)) {
    std::string result = GeneratorResult(line), path = WarningPath(line);
    size_t prefix = std::strlen(MASKED_PREFIX);
    if (line.compare(0, prefix, MASKED_PREFIX) == 0 && EndsWith(line, MASKED_SUFFIX))
      report.masked.push_back(line.substr(prefix, line.size() - prefix - std::strlen(MASKED_SUFFIX)));
    else if (!result.empty()) report.generatorLine = std::string(GENERATOR_NAME) + " " + result;
    else if (!path.empty() && IsAboutOurs(path, report.units)) report.warnings.push_back(line);
    else if (line.compare(0, std::strlen(CANNOT_RUN), CANNOT_RUN) == 0) report.failure = line;
  }
}

}  // namespace

VerifyReport VerifyWithLoader(const Sandbox& sandbox, const std::vector<std::string>& units, int timeoutSeconds) {
  VerifyReport report;
  report.units = units;
  if (units.empty()) return report;
  std::string outputPath = sandbox.work + "/verify-output";
  std::vector<std::string> log;
  pid_t pid = StartChild([&] { return ExecAnalyze(sandbox, units, outputPath); });
  if (pid < 0) {
    report.failure = std::string("cannot fork: ") + std::strerror(errno);
    return report;
  }
  report.ran = true;
  report.outcome = WaitForChild(pid, timeoutSeconds * 1000, sandbox.logFd, log);
  EndOtherProcesses();
  ReadMessages(outputPath, report);
  return report;
}

}  // namespace preview
