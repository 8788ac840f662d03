// Reading the generator directories of a /run tree for this generator's
// own output.
#include "live_state.h"

#include <dirent.h>

#include <map>

#include "constants.h"
#include "snapshot.h"

namespace preview {

namespace {

struct Item {
  std::string kind;
  Entry entry;
};
using Items = std::map<std::string, Item>;

std::vector<std::string> NamesIn(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* stream = opendir(dir.c_str())) {
    while (dirent* item = readdir(stream))
      if (item->d_name[0] != '.') names.push_back(item->d_name);
    closedir(stream);
  }
  return names;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() > suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

void AddMasks(const std::string& run, const Listing& listing, Items& items) {
  std::string dir = run + "/" + (std::string(EARLY_DIR).substr(5));
  for (const std::string& name : NamesIn(dir)) {
    Entry entry = ReadEntry(dir + "/" + name);
    if (entry.kind == 'l' && entry.text == MASK_TARGET && listing.unitFiles.count(name))
      items[std::string(EARLY_DIR) + "/" + name] = {"mask", entry};
  }
}

void AddLinksAndDropIns(const std::string& run, const Listing& listing, Items& items) {
  std::string normal = std::string(NORMAL_DIR).substr(4), early = std::string(EARLY_DIR).substr(4);
  for (const std::string& sub : NamesIn(run + normal)) {
    for (const std::string& name : NamesIn(run + normal + "/" + sub)) {
      std::string path = normal + "/" + sub + "/" + name;
      Entry entry = ReadEntry(run + path);
      auto file = listing.unitFiles.find(name);
      if (EndsWith(sub, ".wants") && entry.kind == 'l' && file != listing.unitFiles.end() && file->second == entry.text)
        items["/run" + path] = {"wants link", entry};
      if (EndsWith(sub, ".d") && name == PACK_CONF_NAME) items["/run" + path] = {"drop-in", entry};
    }
  }
  for (const std::string& sub : NamesIn(run + early))
    if (EndsWith(sub, ".d") && ReadEntry(run + early + "/" + sub + "/" + REASON_CONF_NAME).kind != '-')
      items["/run" + early + "/" + sub + "/" + REASON_CONF_NAME] = {"drop-in", ReadEntry(run + early + "/" + sub + "/" + REASON_CONF_NAME)};
}

Items OutputOf(const std::string& run, const Listing& listing) {
  Items items;
  AddMasks(run, listing, items);
  AddLinksAndDropIns(run, listing, items);
  return items;
}

void AddRunChanges(const std::vector<Change>& changes, const char* kind, std::vector<LiveDifference>& differences) {
  for (const Change& change : changes) {
    const Entry& shown = change.Removed() ? change.before : change.after;
    differences.push_back({change.Removed() ? '-' : '+', kind, change.path, shown.text});
  }
}

}  // namespace

std::vector<LiveDifference> CompareWithLive(const std::string& liveRun, const std::string& previewRun,
                                            const Listing& listing, const RunReport& run) {
  Items live = OutputOf(liveRun, listing), now = OutputOf(previewRun, listing);
  std::vector<LiveDifference> differences;
  for (const auto& [path, item] : live) {
    auto found = now.find(path);
    if (found == now.end() || !(found->second.entry == item.entry)) differences.push_back({'-', item.kind, path, item.entry.text});
  }
  for (const auto& [path, item] : now) {
    auto found = live.find(path);
    if (found == live.end() || !(found->second.entry == item.entry)) differences.push_back({'+', item.kind, path, item.entry.text});
  }
  AddRunChanges(run.enableLinks, "enable link", differences);
  AddRunChanges(run.changeMarks, "change mark", differences);
  return differences;
}

}  // namespace preview
