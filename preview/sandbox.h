// The sandbox a preview runs in: the target's file systems read-only under
// overlays whose upper layers are throwaway, a /run as a boot or a reload
// finds it, and a /dev with a syslog socket of ours.
#pragma once

#include <string>
#include <vector>

#include "options.h"

namespace preview {

// One writable layer: changes to the target below `mountPoint` land in
// `upper` (host path); `lower` is the read-only view beneath ("" for none).
struct Layer {
  std::string mountPoint;
  std::string upper;
  std::string lower;
};

struct Sandbox {
  std::string work;  // the temporary directory, a tmpfs of this namespace
  std::string root;  // the target as the generator sees it
  std::string liveRun;  // the target's own /run, read-only ("" unless compared)
  std::vector<Layer> layers;
  int logFd = -1;
};

// What to run in the sandbox: the target root and, when given, a generator
// binary of the host shown at `generatorPath` inside it.
struct Target {
  std::string root;
  std::string generatorPath;
  std::string hostGenerator;
};

// Builds the sandbox in `work`; must run in a mount namespace of its own, as
// the first process of a pid namespace of its own. Returns "" or why not.
std::string BuildSandbox(const Options& options, const Target& target, const std::string& work, Sandbox& sandbox);

// Empties the three generator directories, as the service manager does
// before it runs its generators again.
std::string EmptyGeneratorDirs(const Sandbox& sandbox);

// Makes both upgrade markers, where missing, in the throwaway layer.
std::string MakeUpgradeMarkers(const Sandbox& sandbox);

}  // namespace preview
