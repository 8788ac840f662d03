#include "unit_entry.h"

#include <dirent.h>
#include <sys/stat.h>

#include <set>
#include <utility>

#include "file_io.h"
#include "paths.h"
#include "unit_name.h"

namespace velasystemd {
namespace {

// As the kernel's own limit on links followed in one lookup.
constexpr int MAX_LINK_STEPS = 40;

std::string BaseName(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string DirectoryOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

// Where the link at `link` points, read inside `root`.
std::string ResolveTarget(const std::string& root, const std::string& link,
                          const std::string& target) {
    if (!target.empty() && target.front() == '/') return root + target;
    return DirectoryOf(link) + "/" + target;
}

// Follows the chain of links starting at `path`.
UnitEntry FollowLinks(const std::string& root, std::string path) {
    UnitEntry entry;
    entry.linked = true;
    for (int step = 0; step < MAX_LINK_STEPS; ++step) {
        std::string target;
        if (!ReadLinkTarget(path, target)) return UnitEntry();
        if (target == MASK_TARGET) {
            entry.kind = EntryKind::MASK;
            return entry;
        }
        path = ResolveTarget(root, path, target);
        struct stat status;
        if (lstat(path.c_str(), &status) < 0) return UnitEntry();
        if (S_ISREG(status.st_mode)) {
            entry.kind = EntryKind::FILE;
            entry.file = path;
            return entry;
        }
        if (!S_ISLNK(status.st_mode)) return UnitEntry();
    }
    return UnitEntry();
}

// True when the first entry of `name`, a link to `file`, names another unit.
bool IsAliasLink(const std::string& name, const std::string& file) {
    std::string target_name = BaseName(file);
    if (target_name == name || !IsValidUnitName(target_name)) return false;
    return !(IsInstanceName(name) && target_name == TemplateOfInstance(name));
}

}  // namespace

std::vector<std::string> UnitDirectoriesUnder(const std::string& root) {
    std::vector<std::string> directories;
    std::set<std::pair<dev_t, ino_t>> seen;
    for (const char* directory : UNIT_DIRECTORIES) {
        std::string path = root + directory;
        struct stat status;
        if (stat(path.c_str(), &status) == 0 && !seen.emplace(status.st_dev, status.st_ino).second) {
            continue;
        }
        directories.push_back(path);
    }
    return directories;
}

UnitEntry ClassifyEntry(const std::string& root, const std::string& directory,
                        const std::string& name, unsigned char type) {
    std::string path = directory + "/" + name;
    UnitEntry entry;
    if (type == DT_REG) {
        entry.kind = EntryKind::FILE;
        entry.file = path;
        return entry;
    }
    if (type != DT_LNK && type != DT_UNKNOWN) return entry;
    struct stat status;
    if (lstat(path.c_str(), &status) < 0) return entry;
    if (S_ISLNK(status.st_mode)) return FollowLinks(root, path);
    if (S_ISREG(status.st_mode)) {
        entry.kind = EntryKind::FILE;
        entry.file = path;
    }
    return entry;
}

bool IsSettled(const UnitLocation& location) {
    return location.found && (!location.masked || !location.file.empty());
}

bool FoldEntry(const std::string& name, const UnitEntry& entry, UnitLocation& location) {
    if (IsSettled(location)) return true;
    if (!location.found && entry.kind != EntryKind::NONE) {
        location.found = true;
        location.masked = entry.kind == EntryKind::MASK;
        location.file = entry.file;
        location.alias = entry.linked && !location.masked && IsAliasLink(name, entry.file);
    } else if (location.found && entry.kind == EntryKind::FILE) {
        location.file = entry.file;
    }
    return IsSettled(location);
}

}  // namespace velasystemd
