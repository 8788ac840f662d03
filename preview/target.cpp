// Checks made before any namespace exists, so that bad input gets its
// message at once.
#include "target.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "constants.h"

namespace preview {

namespace {

std::string CheckExecutable(const std::string& shown, const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) < 0) return shown + ": no such file";
  if (!S_ISREG(status.st_mode)) return shown + ": not a regular file";
  if ((status.st_mode & 0111) == 0) return shown + ": not executable";
  return "";
}

}  // namespace

std::string ResolveTarget(const Options& options, Target& target) {
  char resolved[PATH_MAX];
  struct stat status {};
  if (stat(options.root.c_str(), &status) < 0 || !S_ISDIR(status.st_mode))
    return "--root " + options.root + ": not a directory";
  if (realpath(options.root.c_str(), resolved) == nullptr) return "--root " + options.root + ": cannot be resolved";
  target.root = resolved;
  std::string prefix = target.root == "/" ? "" : target.root;
  if (!options.generator.empty()) {
    if (realpath(options.generator.c_str(), resolved) == nullptr) return "--generator " + options.generator + ": no such file";
    target.hostGenerator = resolved;
    target.generatorPath = std::string(GENERATOR_DIRS[4]) + "/" + GENERATOR_NAME;
    return CheckExecutable("--generator " + options.generator, target.hostGenerator);
  }
  for (const char* dir : GENERATOR_DIRS) {
    std::string path = std::string(dir) + "/" + GENERATOR_NAME;
    if (lstat((prefix + path).c_str(), &status) == 0) {
      target.generatorPath = path;
      return CheckExecutable(target.root + " holds the generator " + path + ", but it is", prefix + path);
    }
  }
  return target.root + " holds no " + GENERATOR_NAME + " in any system generator directory";
}

}  // namespace preview
