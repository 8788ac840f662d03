// The generator's process: entered into the target's root, with the
// environment and file descriptors the service manager gives a generator.
#include "generator_run.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "constants.h"
#include "process.h"

namespace preview {

namespace {

int ExecGenerator(const Sandbox& sandbox, const std::string& generatorPath, const std::string& outputPath) {
  int output = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  int input = open("/dev/null", O_RDONLY);
  if (output < 0 || input < 0 || dup2(input, 0) < 0 || dup2(output, 1) < 0 || dup2(output, 2) < 0) return EXEC_FAILED;
  setsid();
  if (chroot(sandbox.root.c_str()) < 0 || chdir("/") < 0) {
    dprintf(2, "%s%s: cannot enter the target: %s\n", CANNOT_RUN, generatorPath.c_str(), std::strerror(errno));
    return EXEC_FAILED;
  }
  std::string path = std::string("PATH=") + SANDBOX_PATH;
  const char* environment[] = {path.c_str(), "SYSTEMD_SCOPE=system", "SYSTEMD_IN_INITRD=0", nullptr};
  const char* arguments[] = {generatorPath.c_str(), NORMAL_DIR, EARLY_DIR, LATE_DIR, nullptr};
  execve(generatorPath.c_str(), const_cast<char**>(arguments), const_cast<char**>(environment));
  dprintf(2, "%s%s: %s\n", CANNOT_RUN, generatorPath.c_str(), std::strerror(errno));
  return EXEC_FAILED;
}

std::string ReadAll(const std::string& path) {
  std::ifstream file(path);
  std::stringstream content;
  content << file.rdbuf();
  return content.str();
}

}  // namespace

void RunGenerator(const Sandbox& sandbox, const std::string& generatorPath, int timeoutSeconds, RunReport& run) {
  std::string outputPath = sandbox.work + "/generator-output";
  pid_t pid = StartChild([&] { return ExecGenerator(sandbox, generatorPath, outputPath); });
  if (pid < 0) {
    run.failure = std::string("cannot fork: ") + std::strerror(errno);
    return;
  }
  run.outcome = WaitForChild(pid, timeoutSeconds * 1000, sandbox.logFd, run.log);
  // Whatever it left running would go on changing the layers being read.
  EndOtherProcesses();
  run.output = ReadAll(outputPath);
  if (run.outcome.exitStatus == EXEC_FAILED && run.output.compare(0, std::strlen(CANNOT_RUN), CANNOT_RUN) == 0) {
    run.failure = run.output.substr(0, run.output.find('\n'));
    run.outcome.started = false;
  }
}

}  // namespace preview
