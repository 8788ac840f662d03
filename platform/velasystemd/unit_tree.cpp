#include "unit_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "file_io.h"
#include "unit_name.h"
#include "velacore/error_state.h"

namespace velasystemd {
namespace {

constexpr const char* UNIT_DIRECTORIES[] = {
    PERSISTENT_UNIT_DIR, RUNTIME_UNIT_DIR, "/usr/local/lib/systemd/system",
    "/usr/lib/systemd/system", "/lib/systemd/system",
};
constexpr const char* LINK_DIRECTORY_SUFFIXES[] = {".wants", ".requires"};
constexpr const char MASK_TARGET[] = "/dev/null";
// As the kernel's own limit on links followed in one lookup.
constexpr int MAX_LINK_STEPS = 40;
// Far above any real unit file or support table; keeps a stray huge file out of memory.
constexpr size_t MAX_TEXT_FILE_SIZE = 4 << 20;

std::string BaseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool IsLinkDirectoryName(std::string_view name) {
    for (std::string_view suffix : LINK_DIRECTORY_SUFFIXES) {
        if (name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix) return true;
    }
    return false;
}

// The part of a name after its last "."; the whole name when it has none.
std::string_view TypeOf(std::string_view name) {
    return name.substr(name.rfind('.') + 1);
}

// Calls visit(name, dirent type) for each entry of `path`. A missing
// directory is empty; false when one that exists cannot be listed.
template <typename Visit>
bool ListDirectory(const std::string& path, Visit visit) {
    DIR* stream = opendir(path.c_str());
    if (stream == nullptr) return errno == ENOENT;
    errno = 0;
    while (const dirent* item = readdir(stream)) {
        visit(std::string_view(item->d_name), item->d_type);
        errno = 0;
    }
    bool listed = errno == 0;
    (void)closedir(stream);
    return listed;
}

// Follows the links from `path` to a file or a mask; false for anything else.
bool FollowLinks(const std::string& root, std::string path, Entry& entry) {
    for (int step = 0; step < MAX_LINK_STEPS; ++step) {
        std::string target;
        if (!ReadLinkTarget(path, target)) return false;
        if (target == MASK_TARGET) {
            entry.kind = EntryKind::MASK;
            return true;
        }
        path = !target.empty() && target.front() == '/' ? root + target : path.substr(0, path.rfind('/') + 1) + target;
        struct stat status;
        if (lstat(path.c_str(), &status) < 0) return false;
        if (S_ISREG(status.st_mode)) {
            entry.link_file = std::make_unique<std::string>(path);
            return true;
        }
        if (!S_ISLNK(status.st_mode)) return false;
    }
    return false;
}

// Makes `entry` of what `directory`/`entry.name` is; false when it is no entry.
bool Classify(const std::string& root, const std::string& directory, unsigned char type,
              Entry& entry) {
    if (type == DT_REG) return true;
    if (type != DT_LNK && type != DT_UNKNOWN) return false;
    std::string path = directory + "/";
    path += entry.name;
    struct stat status;
    if (lstat(path.c_str(), &status) < 0) return false;
    if (S_ISLNK(status.st_mode)) return FollowLinks(root, path, entry);
    return S_ISREG(status.st_mode);
}

// True when `entry`, the first of `name`, is a link to a file of another unit.
// An instance linked to its own template is no alias.
bool IsAlias(std::string_view name, const Entry& entry) {
    if (entry.kind != EntryKind::FILE || !entry.link_file) return false;
    std::string target = BaseName(*entry.link_file);
    if (target == name || !IsValidUnitName(target)) return false;
    const std::string unit(name);
    return !(IsInstanceName(unit) && target == TemplateOfInstance(unit));
}

bool HaveSameLinkFile(const Entry& a, const Entry& b) {
    if (!a.link_file || !b.link_file) return !a.link_file && !b.link_file;
    return *a.link_file == *b.link_file;
}

Entry* FindEntry(std::vector<Entry>& entries, std::string_view name) {
    auto found = std::lower_bound(entries.begin(), entries.end(), name,
                                  [](const Entry& entry, std::string_view key) { return entry.name < key; });
    return found != entries.end() && found->name == name ? &*found : nullptr;
}

UnitFacts ReadFacts(const char* file, int directory_fd = AT_FDCWD) {
    std::string text;
    if (!ReadRegularFile(file, MAX_TEXT_FILE_SIZE, text, directory_fd)) return UnitFacts();
    return ParseUnitFile(text);
}

}  // namespace

UnitTree::UnitTree(const std::string& root) : root_(root) {
    while (!root_.empty() && root_.back() == '/') root_.pop_back();
    // A directory that is the same as an earlier one (by device and inode, as
    // /lib/systemd/system on a merged-/usr system) is read once.
    std::set<std::pair<dev_t, ino_t>> seen;
    for (const char* directory : UNIT_DIRECTORIES) {
        UnitDirectory unit_directory;
        unit_directory.path = root_ + directory;
        struct stat status;
        if (stat(unit_directory.path.c_str(), &status) == 0 &&
            !seen.emplace(status.st_dev, status.st_ino).second) {
            continue;
        }
        unit_directory.local = directory == PERSISTENT_UNIT_DIR || directory == RUNTIME_UNIT_DIR;
        directories_.push_back(std::move(unit_directory));
    }
}

bool UnitTree::Load() {
    if (loaded_) return true;
    for (UnitDirectory& directory : directories_) {
        if (!ReadDirectory(directory)) return false;
    }
    loaded_ = true;
    return true;
}

bool UnitTree::ReadDirectory(UnitDirectory& directory) {
    directory.stamp.Take(directory.path);
    // The old names stay until the old entries have handed on what they parsed.
    std::vector<Entry> before = std::move(directory.entries);
    const std::vector<char> before_names = std::move(directory.names);
    directory.entries.clear();
    directory.names.clear();
    directory.link_dirs.clear();
    // The names are gathered first: views into them are made once they no longer move.
    std::vector<std::pair<size_t, unsigned char>> found;  // offset in names, dirent type
    bool listed = ListDirectory(directory.path, [&](std::string_view name, unsigned char type) {
        if (directory.local && IsLinkDirectoryName(name)) {
            directory.link_dirs.emplace_back(name);
        } else if (IsValidUnitName(name)) {
            found.emplace_back(directory.names.size(), type);
            directory.names.insert(directory.names.end(), name.begin(), name.end());
            directory.names.push_back('\0');
        }
    });
    directory.names.shrink_to_fit();
    directory.entries.reserve(found.size());
    for (const auto& [offset, type] : found) {
        Entry entry;
        entry.name = std::string_view(&directory.names[offset]);
        if (Classify(root_, directory.path, type, entry)) directory.entries.push_back(std::move(entry));
    }
    std::sort(directory.link_dirs.begin(), directory.link_dirs.end());
    std::sort(directory.entries.begin(), directory.entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    // A unit file is parsed once per run: what was parsed stays with its entry.
    for (Entry& entry : before) {
        Entry* now = FindEntry(directory.entries, entry.name);
        if (now != nullptr && now->kind == entry.kind && HaveSameLinkFile(*now, entry)) now->facts = entry.facts;
    }
    if (!listed) VLIBC_ERR_SET(VLIBC_ERR_LIST_UNITS);
    return listed;
}

void UnitTree::ParseAll() {
    for (UnitDirectory& directory : directories_) {
        // Each file opened by its name alone: the path walk is a good part of
        // the cost of reading thousands of small files.
        int directory_fd = open(directory.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (Entry& entry : directory.entries) {
            if (entry.facts != nullptr || entry.kind != EntryKind::FILE) continue;
            if (entry.link_file) {
                entry.facts = Pooled(ReadFacts(entry.link_file->c_str()));
            } else if (directory_fd >= 0) {
                entry.facts = Pooled(ReadFacts(entry.name.data(), directory_fd));
            } else {
                entry.facts = Pooled(ReadFacts((directory.path + "/" + entry.name.data()).c_str()));
            }
        }
        if (directory_fd >= 0) (void)close(directory_fd);
    }
}

bool UnitTree::RefreshLocal() {
    for (UnitDirectory& directory : directories_) {
        if (!directory.local) continue;
        if (!directory.stamp.IsCurrent(directory.path) && !ReadDirectory(directory)) return false;
    }
    return true;
}

std::vector<std::string> UnitTree::UnitNames(const std::string& type,
                                             const std::function<bool(const std::string&)>& keep) const {
    // A merge of the sorted directories: the first of equal names is the
    // entry of highest precedence.
    std::vector<size_t> next(directories_.size(), 0);
    std::vector<std::string> names;
    for (;;) {
        const Entry* first = nullptr;
        for (size_t d = 0; d < directories_.size(); ++d) {
            const std::vector<Entry>& entries = directories_[d].entries;
            if (next[d] < entries.size() && (first == nullptr || entries[next[d]].name < first->name)) {
                first = &entries[next[d]];
            }
        }
        if (first == nullptr) return names;
        const std::string_view name = first->name;
        if ((type.empty() || TypeOf(name) == type) && !IsAlias(name, *first)) {
            std::string unit(name);
            if (!keep || keep(unit)) names.push_back(std::move(unit));
        }
        for (size_t d = 0; d < directories_.size(); ++d) {
            const std::vector<Entry>& entries = directories_[d].entries;
            if (next[d] < entries.size() && entries[next[d]].name == name) ++next[d];
        }
    }
}

Location UnitTree::LocateName(const std::string& name) {
    Location location;
    for (UnitDirectory& directory : directories_) {
        Entry* entry = FindEntry(directory.entries, name);
        if (entry == nullptr) continue;
        if (!location.found) {
            location.found = true;
            location.masked = entry->kind == EntryKind::MASK;
            location.alias = IsAlias(name, *entry);
        }
        if (entry->kind == EntryKind::FILE) {
            location.directory = &directory;
            location.file = entry;
            return location;
        }
    }
    return location;
}

Location UnitTree::Locate(const std::string& name) {
    Location location = LocateName(name);
    if (!location.found && IsInstanceName(name)) location = LocateName(TemplateOfInstance(name));
    return location;
}

std::string UnitTree::PathOf(const Location& location) {
    if (location.file == nullptr) return "";
    if (location.file->link_file) return *location.file->link_file;
    return location.directory->path + "/" + location.file->name.data();
}

const UnitFacts* UnitTree::FactsOf(const Location& location) {
    Entry& entry = *location.file;
    if (entry.facts == nullptr) entry.facts = Pooled(ReadFacts(PathOf(location).c_str()));
    if (entry.facts->valid()) return entry.facts;
    VLIBC_ERR_SET(VLIBC_ERR_UNIT_UNREADABLE);
    return nullptr;
}

bool UnitTree::LinksNamed(const std::string& name, std::vector<std::string>& links) const {
    links.clear();
    for (const UnitDirectory& directory : directories_) {
        for (const std::string& link_dir : directory.link_dirs) {
            std::string path = directory.path + "/" + link_dir + "/" + name;
            struct stat status;
            if (lstat(path.c_str(), &status) == 0) {
                if (S_ISLNK(status.st_mode)) links.push_back(std::move(path));
            } else if (errno != ENOENT && errno != ENOTDIR) {
                // As a directory that cannot be listed: what it holds is unknown.
                VLIBC_ERR_SET(VLIBC_ERR_LIST_UNITS);
                return false;
            }
        }
    }
    return true;
}

const UnitFacts* UnitTree::Pooled(UnitFacts facts) {
    return &*facts_pool_.insert(std::move(facts)).first;
}

const SupportTable* UnitTree::Support() {
    if (!support_read_) {
        support_read_ = true;
        std::string text;
        if (ReadRegularFile((root_ + SUPPORT_TABLE_PATH).c_str(), MAX_TEXT_FILE_SIZE, text)) {
            support_ = ParseSupportTable(text);
        }
    }
    if (support_) return &*support_;
    VLIBC_ERR_SET(VLIBC_ERR_SUPPORT_TABLE);
    return nullptr;
}

}  // namespace velasystemd
