// Mounting, with errno made into a message where it happens.
#include "mounts.h"

#include <errno.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

namespace preview {

namespace {

std::string Failure(const std::string& what) { return what + ": " + std::strerror(errno); }

// The mount table writes blanks, tabs, newlines and backslashes as \ooo.
std::string Unescape(const std::string& field) {
  std::string text;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      text += static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

bool IsAtOrBelow(const std::string& path, const std::string& root) {
  return root == "/" || path == root || path.compare(0, root.size() + 1, root + "/") == 0;
}

}  // namespace

std::vector<std::string> MountPointsBelow(const std::string& root) {
  std::vector<std::string> points;
  std::ifstream table("/proc/self/mountinfo");
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string id, parent, device, source, point;
    fields >> id >> parent >> device >> source >> point;
    point = Unescape(point);
    if (IsAtOrBelow(point, root) && std::find(points.begin(), points.end(), point) == points.end())
      points.push_back(point);
  }
  std::sort(points.begin(), points.end());
  return points;
}

std::string MakeMountsPrivate() {
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) < 0) return Failure("cannot make the mounts private");
  return "";
}

std::string BindReadOnly(const std::string& source, const std::string& target) {
  if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) < 0)
    return Failure("cannot bind " + source);
  if (mount(nullptr, target.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) < 0)
    return Failure("cannot make " + source + " read-only");
  return "";
}

std::string MountOverlay(const std::string& lower, const std::string& upper, const std::string& scratch,
                         const std::string& target) {
  std::string options = "lowerdir=" + lower + ",upperdir=" + upper + ",workdir=" + scratch;
  if (mount("overlay", target.c_str(), "overlay", 0, options.c_str()) < 0)
    return Failure("cannot mount an overlay on " + target);
  return "";
}

std::string MountTmpfs(const std::string& target, const std::string& mode) {
  if (mount("tmpfs", target.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, ("mode=" + mode).c_str()) < 0)
    return Failure("cannot mount a tmpfs on " + target);
  return "";
}

std::string MountKernelFileSystem(const char* type, const std::string& target, bool readOnly) {
  unsigned long flags = MS_NOSUID | MS_NODEV | MS_NOEXEC | (readOnly ? MS_RDONLY : 0);
  if (mount(type, target.c_str(), type, flags, nullptr) < 0) return Failure(std::string("cannot mount ") + type);
  return "";
}

std::string MakeDirectories(const std::string& path) {
  std::string sofar;
  std::istringstream parts(path);
  std::string part;
  while (std::getline(parts, part, '/')) {
    if (part.empty()) continue;
    sofar += "/" + part;
    if (mkdir(sofar.c_str(), 0755) < 0 && errno != EEXIST) return Failure("cannot make " + sofar);
  }
  return "";
}

}  // namespace preview
