// Walking the upper layers. A character device 0:0 there is the overlay's
// record of a removal.
#include "snapshot.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <fstream>
#include <algorithm>
#include <functional>
#include <sstream>

#include "constants.h"

namespace preview {

namespace {

std::string ContentOf(const std::string& path, long size) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream content;
  content << file.rdbuf();
  if (size <= MAX_SHOWN_FILE) return content.str();
  return "(" + std::to_string(size) + " bytes, digest " + std::to_string(std::hash<std::string>()(content.str())) + ")";
}

// A directory that the overlay marks opaque replaced the one beneath.
bool IsOpaque(const std::string& path) {
  char value[2] = {0, 0};
  return lgetxattr(path.c_str(), "trusted.overlay.opaque", value, 1) == 1 && value[0] == 'y';
}

void WalkDirectory(const std::string& dir, const std::string& inTarget, Snapshot& snapshot) {
  DIR* stream = opendir(dir.c_str());
  if (stream == nullptr) return;
  while (dirent* item = readdir(stream)) {
    std::string name = item->d_name;
    if (name == "." || name == "..") continue;
    std::string path = dir + "/" + name;
    std::string target = (inTarget == "/" ? "" : inTarget) + "/" + name;
    Entry entry = ReadEntry(path);
    snapshot[target] = entry;
    if (entry.kind == 'd') WalkDirectory(path, target, snapshot);
  }
  closedir(stream);
}

const Layer* LayerOf(const std::string& path, const std::vector<Layer>& layers) {
  const Layer* found = nullptr;
  for (const Layer& layer : layers) {
    const std::string& point = layer.mountPoint;
    bool below = point == "/" || path == point || path.compare(0, point.size() + 1, point + "/") == 0;
    if (below && (found == nullptr || point.size() > found->mountPoint.size())) found = &layer;
  }
  return found;
}

// Under a removal or a replaced directory of `before`, nothing of the lower
// layer shows.
bool IsHidden(const std::string& path, const Snapshot& before) {
  for (std::string::size_type slash = path.rfind('/'); slash != 0 && slash != std::string::npos;
       slash = path.rfind('/', slash - 1)) {
    auto found = before.find(path.substr(0, slash));
    if (found != before.end() && (found->second.kind == 'w' || found->second.text == "replaced")) return true;
  }
  return false;
}

Entry LowerEntry(const std::string& path, const Snapshot& before, const std::vector<Layer>& layers) {
  const Layer* layer = LayerOf(path, layers);
  if (IsHidden(path, before)) return Entry();
  if (layer == nullptr || layer->lower.empty()) return Entry();
  std::string below = layer->mountPoint == "/" ? path : path.substr(layer->mountPoint.size());
  return ReadEntry(layer->lower + below);
}

}  // namespace

Entry ReadEntry(const std::string& path) {
  struct stat status {};
  Entry entry;
  if (lstat(path.c_str(), &status) < 0) return entry;
  if (S_ISDIR(status.st_mode)) {
    entry.kind = 'd';
    if (IsOpaque(path)) entry.text = "replaced";
  } else if (S_ISREG(status.st_mode)) {
    entry.kind = 'f';
    entry.text = ContentOf(path, status.st_size);
  } else if (S_ISLNK(status.st_mode)) {
    std::string target(static_cast<size_t>(status.st_size) + 1, '\0');
    ssize_t length = readlink(path.c_str(), &target[0], target.size());
    entry.kind = 'l';
    entry.text = target.substr(0, length < 0 ? 0 : static_cast<size_t>(length));
  } else if (S_ISCHR(status.st_mode) && status.st_rdev == makedev(0, 0)) {
    entry.kind = 'w';
  } else {
    entry.kind = 'o';
  }
  return entry;
}

Snapshot TakeSnapshot(const std::vector<Layer>& layers) {
  Snapshot snapshot;
  for (const Layer& layer : layers) WalkDirectory(layer.upper, layer.mountPoint, snapshot);
  return snapshot;
}

std::vector<Change> CompareSnapshots(const Snapshot& before, const Snapshot& after, const std::vector<Layer>& layers) {
  std::vector<Change> changes;
  for (const auto& [path, entry] : after) {
    auto old = before.find(path);
    if (old != before.end() && old->second == entry) continue;
    Entry was = old != before.end() ? old->second : LowerEntry(path, before, layers);
    // Written again as it was: no change.
    if (!(was == entry)) changes.push_back({path, was, entry});
  }
  for (const auto& [path, entry] : before) {
    if (after.count(path) == 0) changes.push_back({path, entry, LowerEntry(path, after, layers)});
  }
  std::sort(changes.begin(), changes.end(), [](const Change& a, const Change& b) { return a.path < b.path; });
  return changes;
}

}  // namespace preview
