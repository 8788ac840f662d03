// Building the sandbox: every mount of the target gets an overlay of its
// own, since an overlay shows only the file system of its lower directory,
// not what is mounted below it.
#include "sandbox.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "constants.h"
#include "live_copy.h"
#include "mounts.h"
#include "syslog_socket.h"

namespace preview {

namespace {

// Replaced by the sandbox's own, never layered over the target's.
constexpr const char* OWN_TREES[] = {"/proc", "/sys", "/dev", "/run", "/tmp"};
// The devices a generator and the programs it runs may open.
constexpr const char* DEVICES[] = {"null", "zero", "full", "random", "urandom", "tty"};
constexpr std::pair<const char*, const char*> DEVICE_LINKS[] = {
    {"fd", "/proc/self/fd"}, {"stdin", "/proc/self/fd/0"}, {"stdout", "/proc/self/fd/1"}, {"stderr", "/proc/self/fd/2"}};

std::string Below(const std::string& root, const std::string& path) {
  return root == "/" ? path : path.substr(root.size());
}

bool IsOwnTree(const std::string& inTarget) {
  for (const char* tree : OWN_TREES) {
    std::string prefix = tree;
    if (inTarget == prefix || inTarget.compare(0, prefix.size() + 1, prefix + "/") == 0) return true;
  }
  return false;
}

std::string MakeFile(const std::string& path) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return "cannot make " + path + ": " + std::strerror(errno);
  close(fd);
  return "";
}

// An overlay of one mount of the target, or that mount read-only when its
// file system cannot be an overlay's lower layer.
std::string LayerMount(Sandbox& sandbox, const std::string& hostPoint, const std::string& inTarget) {
  std::string index = std::to_string(sandbox.layers.size());
  Layer layer{inTarget, sandbox.work + "/upper" + index, sandbox.work + "/lower" + index};
  std::string scratch = sandbox.work + "/scratch" + index;
  std::string mounted = sandbox.root + (inTarget == "/" ? "" : inTarget);
  for (const std::string& dir : {layer.upper, layer.lower, scratch})
    if (mkdir(dir.c_str(), 0700) < 0) return "cannot make " + dir + ": " + std::strerror(errno);
  std::string failure = BindReadOnly(hostPoint, layer.lower);
  std::string overlay = failure.empty() ? MountOverlay(layer.lower, layer.upper, scratch, mounted) : "";
  // Without an overlay of the root there is nothing to preview; a mount
  // below it stays read-only, and what the run writes there fails.
  if (!overlay.empty() && inTarget == "/") return overlay + " (does the kernel have the overlay file system?)";
  if (!overlay.empty()) return BindReadOnly(layer.lower, mounted);
  if (failure.empty()) sandbox.layers.push_back(layer);
  return failure;
}

std::string LayerTarget(Sandbox& sandbox, const std::string& root) {
  std::string failure = LayerMount(sandbox, root, "/");
  for (const std::string& point : MountPointsBelow(root)) {
    if (!failure.empty()) return failure;
    if (point == root) continue;
    std::string inTarget = Below(root, point);
    if (IsOwnTree(inTarget) || point.compare(0, sandbox.work.size(), sandbox.work) == 0) continue;
    failure = LayerMount(sandbox, point, inTarget);
  }
  return failure;
}

// /run as a boot finds it (empty but for the generator directories), or for
// a comparison with the live state as a reload finds it: with the target's
// runtime enable links, run-once flags and reason drop-in.
std::string MakeRun(Sandbox& sandbox, const Options& options, const std::string& root) {
  std::string run = sandbox.root + "/run";
  std::string failure = MakeDirectories(run);
  if (failure.empty()) failure = MountTmpfs(run, "0755");
  if (failure.empty() && options.changes) {
    sandbox.liveRun = sandbox.work + "/live-run";
    if (mkdir(sandbox.liveRun.c_str(), 0700) < 0) return "cannot make " + sandbox.liveRun + ": " + std::strerror(errno);
    failure = BindReadOnly(root + "/run", sandbox.liveRun);
    if (failure.empty()) failure = CopyLiveState(sandbox.liveRun, run);
  }
  if (failure.empty()) sandbox.layers.push_back({"/run", run, ""});
  return failure.empty() ? EmptyGeneratorDirs(sandbox) : failure;
}

std::string MakeDev(Sandbox& sandbox) {
  std::string dev = sandbox.root + "/dev";
  std::string failure = MakeDirectories(dev);
  if (failure.empty()) failure = MountTmpfs(dev, "0755");
  for (const char* device : DEVICES) {
    std::string path = dev + "/" + device;
    if (failure.empty()) failure = MakeFile(path);
    if (failure.empty() && mount(("/dev/" + std::string(device)).c_str(), path.c_str(), nullptr, MS_BIND, nullptr) < 0)
      failure = std::string("cannot bind /dev/") + device + ": " + std::strerror(errno);
  }
  if (!failure.empty()) return failure;
  for (const auto& [name, target] : DEVICE_LINKS)
    if (symlink(target, (dev + "/" + name).c_str()) < 0) return "cannot make /dev/" + std::string(name);
  // Not every program needs it: a /dev/shm that cannot be made is no failure.
  (void)mkdir((dev + "/shm").c_str(), 01777);
  sandbox.layers.push_back({"/dev", dev, ""});
  sandbox.logFd = BindLogSocket(dev + "/log");
  if (sandbox.logFd < 0) return "cannot make the syslog socket: " + std::string(std::strerror(errno));
  return "";
}

std::string MakeKernelTrees(Sandbox& sandbox) {
  std::string failure = MakeDirectories(sandbox.root + "/proc");
  if (failure.empty()) failure = MountKernelFileSystem("proc", sandbox.root + "/proc", false);
  // The kernel's settings are the host's, whatever the namespaces: read-only,
  // as sysfs below.
  for (const char* setting : {"/proc/sys", "/proc/sysrq-trigger"})
    if (failure.empty() && access((sandbox.root + setting).c_str(), F_OK) == 0)
      failure = BindReadOnly(sandbox.root + setting, sandbox.root + setting);
  if (failure.empty()) failure = MakeDirectories(sandbox.root + "/sys");
  if (failure.empty()) failure = MountKernelFileSystem("sysfs", sandbox.root + "/sys", true);
  if (failure.empty()) failure = MakeDirectories(sandbox.root + "/tmp");
  if (failure.empty()) failure = MountTmpfs(sandbox.root + "/tmp", "1777");
  if (failure.empty()) sandbox.layers.push_back({"/tmp", sandbox.root + "/tmp", ""});
  return failure;
}

// A generator of the host's shown at the target's generator path.
std::string ShowHostGenerator(const Sandbox& sandbox, const Target& target) {
  if (target.hostGenerator.empty()) return "";
  std::string path = sandbox.root + target.generatorPath;
  std::string failure = MakeDirectories(path.substr(0, path.rfind('/')));
  if (failure.empty() && access(path.c_str(), F_OK) < 0) failure = MakeFile(path);
  if (failure.empty()) failure = BindReadOnly(target.hostGenerator, path);
  return failure;
}

int RemoveEntry(const char* path, const struct stat*, int, FTW*) { return remove(path) < 0 ? -1 : 0; }

}  // namespace

std::string BuildSandbox(const Options& options, const Target& target, const std::string& work, Sandbox& sandbox) {
  sandbox.work = work;
  sandbox.root = work + "/root";
  std::string failure = MakeMountsPrivate();
  if (failure.empty()) failure = MountTmpfs(work, "0700");
  if (failure.empty() && mkdir(sandbox.root.c_str(), 0755) < 0) failure = "cannot make " + sandbox.root;
  if (failure.empty()) failure = LayerTarget(sandbox, target.root);
  if (failure.empty()) failure = MakeRun(sandbox, options, target.root);
  if (failure.empty()) failure = MakeDev(sandbox);
  if (failure.empty()) failure = MakeKernelTrees(sandbox);
  if (failure.empty()) failure = ShowHostGenerator(sandbox, target);
  return failure;
}

std::string EmptyGeneratorDirs(const Sandbox& sandbox) {
  for (const char* dir : {NORMAL_DIR, EARLY_DIR, LATE_DIR}) {
    std::string path = sandbox.root + dir;
    if (nftw(path.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS) < 0 && errno != ENOENT)
      return "cannot empty " + std::string(dir) + ": " + std::strerror(errno);
    std::string failure = MakeDirectories(path);
    if (!failure.empty()) return failure;
  }
  return "";
}

std::string MakeUpgradeMarkers(const Sandbox& sandbox) {
  for (const char* marker : UPGRADE_MARKERS) {
    std::string path = sandbox.root + marker;
    if (access(path.c_str(), F_OK) == 0) continue;
    std::string failure = MakeDirectories(path.substr(0, path.rfind('/')));
    if (failure.empty()) failure = MakeFile(path);
    if (!failure.empty()) return failure;
  }
  return "";
}

}  // namespace preview
