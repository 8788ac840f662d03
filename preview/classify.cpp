// Which kind of output a changed path is, by where it lies.
#include "classify.h"

#include <algorithm>
#include <set>

#include "constants.h"

namespace preview {

namespace {

// The flag names of the upgrade-boot steps that run a program, and the
// program each stands for.
const std::pair<const char*, std::string> PROGRAM_FLAGS[] = {
    {"velaservicemigrate", std::string(SERVICE_MIGRATE_BIN) + " --all"},
    {"configupdate-", std::string(CONFIG_UPDATE_SCRIPT) + " "},
};

bool StartsWith(const std::string& text, const std::string& prefix) { return text.compare(0, prefix.size(), prefix) == 0; }

std::string Dir(const std::string& path) { return path.substr(0, path.rfind('/')); }
std::string Name(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool IsInGeneratorDir(const std::string& path) {
  return StartsWith(path, std::string(NORMAL_DIR) + "/") || StartsWith(path, std::string(EARLY_DIR) + "/");
}

bool IsDropIn(const std::string& path) {
  return (IsInGeneratorDir(path) && EndsWith(Dir(path), ".d")) ||
         path == std::string(REASON_CONF_DIR) + REASON_CONF_NAME;
}

bool IsEnableLink(const Change& change) {
  bool link = change.after.kind == 'l' || change.before.kind == 'l';
  for (const char* dir : ENABLE_LINK_DIRS)
    if (link && StartsWith(change.path, dir)) return true;
  return false;
}

void NoteProgram(const std::string& flag, RunReport& run) {
  for (const auto& [prefix, program] : PROGRAM_FLAGS) {
    if (flag == prefix) run.programs.push_back(program);
    else if (StartsWith(flag, prefix) && EndsWith(prefix, "-")) run.programs.push_back(program + flag.substr(std::string(prefix).size()));
  }
}

// A new directory is worth a line only when nothing was made inside it.
bool IsMereParent(const Change& change, const std::vector<Change>& changes) {
  if (change.after.kind != 'd' || !change.Added() || change.after.text == "replaced") return false;
  return std::any_of(changes.begin(), changes.end(), [&](const Change& other) { return StartsWith(other.path, change.path + "/"); });
}

bool Concerns(const std::string& path, const std::string& unit) {
  return Name(path) == unit || Name(Dir(path)) == unit + ".d" || Name(Dir(path)) == unit + ".wants" ||
         Name(Dir(path)) == unit + ".requires";
}

template <typename Items, typename Keep>
void KeepOnly(Items& items, Keep keep) {
  items.erase(std::remove_if(items.begin(), items.end(), [&](const auto& item) { return !keep(item); }), items.end());
}

}  // namespace

void ClassifyChanges(const std::vector<Change>& changes, RunReport& run) {
  for (const Change& change : changes) {
    const std::string& path = change.path;
    if (IsMereParent(change, changes) || (change.after.kind == 'd' && IsInGeneratorDir(path))) continue;
    if (Dir(path) == EARLY_DIR && change.after.kind == 'l' && change.after.text == MASK_TARGET) {
      run.masks.push_back(change);
    } else if (StartsWith(path, std::string(NORMAL_DIR) + "/") && EndsWith(Dir(path), ".wants") && change.after.kind == 'l') {
      std::string target = Name(Dir(path));
      run.wants[target.substr(0, target.size() - 6)].push_back(Name(path));
      run.wantsLinks.push_back(change);
    } else if (IsDropIn(path)) {
      run.dropIns.push_back(change);
    } else if (IsEnableLink(change)) {
      run.enableLinks.push_back(change);
    } else if (StartsWith(path, CHANGE_MARK_DIR) && change.after.kind != 'd') {
      run.changeMarks.push_back(change);
    } else if (StartsWith(path, UPGRADE_FLAG_DIR)) {
      run.flags.push_back(change);
      NoteProgram(Name(path), run);
    } else if (std::find(std::begin(LEGACY_CONF_DIRS), std::end(LEGACY_CONF_DIRS), path) != std::end(LEGACY_CONF_DIRS)) {
      run.legacyRemoved.push_back(change);
    } else if (change.after.kind != 'd' || change.Removed() || change.after.text == "replaced" || change.Added()) {
      run.other.push_back(change);
    }
  }
}

void NarrowToUnit(const std::string& unit, RunReport& run) {
  auto concerns = [&](const Change& change) { return Concerns(change.path, unit); };
  KeepOnly(run.masks, concerns);
  KeepOnly(run.wantsLinks, concerns);
  // The shared reason drop-in stays when the unit's drop-in links to it.
  std::string reasonFile = std::string(REASON_CONF_DIR) + REASON_CONF_NAME;
  KeepOnly(run.dropIns, [&](const Change& change) { return concerns(change) || change.path == reasonFile; });
  if (std::none_of(run.dropIns.begin(), run.dropIns.end(), [&](const Change& c) { return c.after.text == reasonFile; }))
    KeepOnly(run.dropIns, concerns);
  KeepOnly(run.enableLinks, concerns);
  KeepOnly(run.changeMarks, concerns);
  KeepOnly(run.log, [&](const std::string& line) { return line.find(unit) != std::string::npos; });
  std::map<std::string, std::vector<std::string>> wants;
  for (const Change& change : run.wantsLinks) {
    std::string target = Name(Dir(change.path));
    wants[target.substr(0, target.size() - 6)].push_back(Name(change.path));
  }
  run.wants = wants;
  run.flags.clear();
  run.programs.clear();
  run.legacyRemoved.clear();
  run.other.clear();
}

std::vector<std::string> UnitsNamedBy(const RunReport& run) {
  std::set<std::string> units;
  for (const Change& change : run.masks) units.insert(Name(change.path));
  for (const auto& [target, linked] : run.wants) {
    units.insert(target);
    units.insert(linked.begin(), linked.end());
  }
  for (const Change& change : run.dropIns)
    if (IsInGeneratorDir(change.path)) units.insert(Name(Dir(change.path)).substr(0, Name(Dir(change.path)).size() - 2));
  std::vector<std::string> named;
  for (const std::string& unit : units)
    if (unit.find("@.") == std::string::npos) named.push_back(unit);
  return named;
}

}  // namespace preview
