// Copying a tree of directories, files and links.
#include "live_copy.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "mounts.h"

namespace preview {

namespace {

// Beneath /run: the runtime unit directory with its enable links, the
// run-once flags, and the shared reason drop-in.
constexpr const char* LIVE_TREES[] = {"/systemd/system", "/upgrade-bootup", "/velasystemd"};

std::string Failure(const std::string& what) { return what + ": " + std::strerror(errno); }

std::string CopyEntry(const std::string& from, const std::string& to) {
  struct stat status {};
  if (lstat(from.c_str(), &status) < 0) return errno == ENOENT ? "" : Failure("cannot read " + from);
  if (S_ISLNK(status.st_mode)) {
    std::string target(static_cast<size_t>(status.st_size) + 1, '\0');
    ssize_t length = readlink(from.c_str(), &target[0], target.size());
    if (length < 0 || symlink(target.substr(0, static_cast<size_t>(length)).c_str(), to.c_str()) < 0)
      return Failure("cannot copy the link " + from);
  } else if (S_ISREG(status.st_mode)) {
    std::ifstream source(from, std::ios::binary);
    std::ofstream copy(to, std::ios::binary);
    copy << source.rdbuf();
    if (!copy || chmod(to.c_str(), status.st_mode & 07777) < 0) return Failure("cannot copy " + from);
  } else if (S_ISDIR(status.st_mode)) {
    if (mkdir(to.c_str(), status.st_mode & 07777) < 0 && errno != EEXIST) return Failure("cannot make " + to);
    DIR* stream = opendir(from.c_str());
    if (stream == nullptr) return Failure("cannot read " + from);
    std::string failure;
    while (dirent* item = readdir(stream)) {
      std::string name = item->d_name;
      if (failure.empty() && name != "." && name != "..") failure = CopyEntry(from + "/" + name, to + "/" + name);
    }
    closedir(stream);
    return failure;
  }
  return "";
}

}  // namespace

std::string CopyLiveState(const std::string& liveRun, const std::string& run) {
  for (const char* tree : LIVE_TREES) {
    std::string to = run + tree;
    std::string failure = MakeDirectories(to.substr(0, to.rfind('/')));
    if (failure.empty()) failure = CopyEntry(liveRun + tree, to);
    if (!failure.empty()) return failure;
  }
  return "";
}

}  // namespace preview
