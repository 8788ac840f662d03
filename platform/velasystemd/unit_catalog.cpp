#include "unit_catalog.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "error_codes.h"
#include "file_io.h"
#include "unit_file_parser.h"
#include "unit_name.h"

namespace velasystemd {
namespace {

// Far above any real unit file or support table; keeps a stray huge file
// from being read into memory.
constexpr size_t MAX_TEXT_FILE_SIZE = 4 << 20;

std::string RootPrefix(const std::string& root) {
    std::string prefix = root;
    while (!prefix.empty() && prefix.back() == '/') prefix.pop_back();
    return prefix;
}

// `file` relative to `directory_fd`, or absolute.
PackedFacts ReadFacts(const std::string& file, int directory_fd = AT_FDCWD) {
    std::string text;
    if (!ReadRegularFile(file, MAX_TEXT_FILE_SIZE, text, directory_fd)) return PackedFacts();
    return PackedFacts(ParseUnitFile(text));
}

}  // namespace

UnitCatalog::UnitCatalog(const std::string& root)
    : root_(RootPrefix(root)), directories_(UnitDirectoriesUnder(root_)) {}

bool UnitCatalog::LoadIndex() {
    if (index_loaded_) return true;
    std::vector<std::pair<std::string, UnitEntry>> found;
    std::vector<size_t> directory_of;  // of each element of `found`
    for (size_t directory = 0; directory < directories_.size(); ++directory) {
        if (!ScanDirectory(directory, found)) return false;
        directory_of.resize(found.size(), directory);
    }
    KeepScanned(found, directory_of);
    index_loaded_ = true;
    return true;
}

bool UnitCatalog::ScanDirectory(size_t directory,
                                std::vector<std::pair<std::string, UnitEntry>>& found) const {
    const std::string& path = directories_[directory];
    DIR* stream = opendir(path.c_str());
    if (stream == nullptr && errno == ENOENT) return true;
    if (stream == nullptr) {
        VLIBC_ERR_SET(VLIBC_ERR_LIST_UNITS);
        return false;
    }
    errno = 0;
    while (const dirent* item = readdir(stream)) {
        std::string name = item->d_name;
        if (IsValidUnitName(name)) {
            UnitEntry entry = ClassifyEntry(root_, path, name, item->d_type);
            if (entry.kind != EntryKind::NONE) found.emplace_back(std::move(name), std::move(entry));
        }
        errno = 0;
    }
    bool listed = errno == 0;
    (void)closedir(stream);
    if (!listed) VLIBC_ERR_SET(VLIBC_ERR_LIST_UNITS);
    return listed;
}

// Turns the entries found, in directory order, into one record per name.
void UnitCatalog::KeepScanned(std::vector<std::pair<std::string, UnitEntry>>& found,
                              const std::vector<size_t>& directory_of) {
    std::vector<size_t> order(found.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return found[a].first < found[b].first; });
    for (size_t i : order) {
        if (units_.empty() || units_.back().name != found[i].first) {
            units_.push_back(ScannedUnit{std::move(found[i].first), {}, false, PackedFacts()});
        }
        const UnitEntry& entry = found[i].second;
        units_.back().entries[directory_of[i]] =
            static_cast<uint8_t>(entry.kind) | (entry.linked ? LINKED_ENTRY : 0);
        if (entry.linked && entry.kind == EntryKind::FILE) {
            linked_files_[{units_.size() - 1, directory_of[i]}] = entry.file;
        }
    }
    units_.shrink_to_fit();
}

const UnitCatalog::ScannedUnit* UnitCatalog::Find(const std::string& name) const {
    auto found = std::lower_bound(units_.begin(), units_.end(), name,
                                  [](const ScannedUnit& unit, const std::string& key) {
                                      return unit.name < key;
                                  });
    return found != units_.end() && found->name == name ? &*found : nullptr;
}

std::vector<std::string> UnitCatalog::Names() const {
    std::vector<std::string> names;
    names.reserve(units_.size());
    for (const ScannedUnit& unit : units_) names.push_back(unit.name);
    return names;
}

UnitEntry UnitCatalog::ScannedEntry(size_t directory, const std::string& name) const {
    return EntryIn(Find(name), directory);
}

UnitEntry UnitCatalog::EntryIn(const ScannedUnit* unit, size_t directory) const {
    UnitEntry entry;
    if (unit == nullptr || directory >= directories_.size()) return entry;
    uint8_t kept = unit->entries[directory];
    entry.kind = static_cast<EntryKind>(kept & ~LINKED_ENTRY);
    entry.linked = (kept & LINKED_ENTRY) != 0;
    if (entry.kind != EntryKind::FILE) return entry;
    if (entry.linked) {
        entry.file = linked_files_.at({static_cast<size_t>(unit - units_.data()), directory});
    } else {
        entry.file = directories_[directory] + "/" + unit->name;
    }
    return entry;
}

UnitLocation UnitCatalog::Locate(const std::string& unit) const {
    // One search per name tried, not one per directory.
    const std::string* searched = nullptr;
    const ScannedUnit* found = nullptr;
    return LocateUnit(unit, directories_.size(), [&](size_t directory, const std::string& name) {
        if (searched == nullptr || *searched != name) {
            searched = &name;
            found = Find(name);
        }
        return EntryIn(found, directory);
    });
}

size_t UnitCatalog::OwnFileDirectory(const ScannedUnit& unit) const {
    for (size_t directory = 0; directory < directories_.size(); ++directory) {
        if (unit.entries[directory] == static_cast<uint8_t>(EntryKind::FILE)) return directory;
    }
    return NOT_KEPT;
}

size_t UnitCatalog::KeeperOf(const std::string& file) const {
    size_t slash = file.rfind('/');
    if (slash == std::string::npos) return NOT_KEPT;
    const ScannedUnit* unit = Find(file.substr(slash + 1));
    if (unit == nullptr) return NOT_KEPT;
    size_t directory = OwnFileDirectory(*unit);
    if (directory == NOT_KEPT || file.compare(0, slash, directories_[directory]) != 0) return NOT_KEPT;
    return static_cast<size_t>(unit - units_.data());
}

void UnitCatalog::LoadAll() {
    // Opened once, so that each file is found by its name alone: the path walk
    // is a good part of the cost of reading thousands of small files.
    std::vector<int> directory_fds;
    for (const std::string& directory : directories_) {
        directory_fds.push_back(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    for (ScannedUnit& unit : units_) {
        size_t directory = OwnFileDirectory(unit);
        if (unit.parsed || directory == NOT_KEPT) continue;
        int directory_fd = directory_fds[directory];
        unit.facts = directory_fd >= 0 ? ReadFacts(unit.name, directory_fd)
                                       : ReadFacts(directories_[directory] + "/" + unit.name);
        unit.parsed = true;
    }
    for (int directory_fd : directory_fds) {
        if (directory_fd >= 0) (void)close(directory_fd);
    }
}

const PackedFacts& UnitCatalog::Load(const std::string& file) {
    size_t keeper = KeeperOf(file);
    if (keeper != NOT_KEPT) {
        ScannedUnit& unit = units_[keeper];
        if (!unit.parsed) {
            unit.facts = ReadFacts(file);
            unit.parsed = true;
        }
        return unit.facts;
    }
    auto found = other_facts_.find(file);
    if (found == other_facts_.end()) found = other_facts_.emplace(file, ReadFacts(file)).first;
    return found->second;
}

const PackedFacts* UnitCatalog::FactsOf(const std::string& file) {
    const PackedFacts& facts = Load(file);
    if (facts.valid()) return &facts;
    VLIBC_ERR_SET(VLIBC_ERR_UNIT_UNREADABLE);
    return nullptr;
}

const SupportTable* UnitCatalog::Support() {
    if (!support_read_) {
        support_read_ = true;
        std::string text;
        if (ReadRegularFile(root_ + SUPPORT_TABLE_PATH, MAX_TEXT_FILE_SIZE, text)) {
            support_ = ParseSupportTable(text);
        }
    }
    if (!support_) {
        VLIBC_ERR_SET(VLIBC_ERR_SUPPORT_TABLE);
        return nullptr;
    }
    return &*support_;
}

}  // namespace velasystemd
