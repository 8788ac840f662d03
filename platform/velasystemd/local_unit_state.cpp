#include "local_unit_state.h"

#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "unit_name.h"

namespace velasystemd {
namespace {

constexpr std::string_view LINK_DIRECTORY_SUFFIXES[] = {".wants", ".requires"};

// Entries appearing, disappearing or renamed; the directory itself going.
constexpr uint32_t DIRECTORY_EVENTS = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                      IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// A missing base directory may appear below its nearest existing ancestor.
constexpr uint32_t ANCESTOR_EVENTS = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;
constexpr uint32_t GONE_EVENTS = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

// Room for many events at once; one needs at most sizeof(inotify_event) + NAME_MAX + 1.
constexpr size_t EVENT_BUFFER_SIZE = 16384;

bool IsLinkDirectoryName(std::string_view name) {
    for (std::string_view suffix : LINK_DIRECTORY_SUFFIXES) {
        if (name.size() > suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
            return true;
        }
    }
    return false;
}

bool IsSymbolicLink(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

}  // namespace

LocalUnitState::LocalUnitState(std::string root, std::vector<std::string> bases)
    : root_(std::move(root)) {
    for (std::string& path : bases) bases_.push_back(Base{std::move(path), {}, {}});
}

LocalUnitState::~LocalUnitState() {
    if (notifications_ >= 0) (void)close(notifications_);
}

bool LocalUnitState::Refresh() {
    if (owner_ == getpid() && current_ && ApplyPendingEvents()) return true;
    return Rebuild();
}

bool LocalUnitState::Rebuild() {
    // An instance inherited through fork is still the parent's: close only our copy.
    if (notifications_ >= 0) (void)close(notifications_);
    notifications_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    owner_ = getpid();
    current_ = notifications_ >= 0;
    watches_.clear();
    for (size_t base = 0; base < bases_.size(); ++base) {
        if (!LoadBase(base)) {
            current_ = false;
            return false;
        }
    }
    return true;
}

int LocalUnitState::Watch(const std::string& path, uint32_t events, const Watched& watched) {
    if (!current_) return -1;
    int watch = inotify_add_watch(notifications_, path.c_str(), events);
    if (watch >= 0) {
        watches_[watch] = watched;
    } else if (errno != ENOENT && errno != ENOTDIR) {
        // Out of watches, say: the state can no longer be kept, only read.
        current_ = false;
    }
    return watch;
}

bool LocalUnitState::LoadBase(size_t base) {
    Base& state = bases_[base];
    state.entries.clear();
    state.link_directories.clear();
    // Watch first, then read: a change in between is both read and notified.
    int watch = Watch(state.path, DIRECTORY_EVENTS, Watched{WatchKind::BASE, base, ""});
    DIR* stream = opendir(state.path.c_str());
    if (stream == nullptr) {
        if (errno != ENOENT) return false;
        WatchNearestAncestor(base);
        return true;
    }
    // Created between the two calls: read now, but unwatched.
    if (watch < 0) current_ = false;
    bool loaded = true;
    errno = 0;
    while (const dirent* item = readdir(stream)) {
        std::string name = item->d_name;
        if (IsLinkDirectoryName(name)) {
            loaded = LoadLinkDirectory(base, name) && loaded;
        } else if (IsValidUnitName(name)) {
            UnitEntry entry = ClassifyEntry(root_, state.path, name, item->d_type);
            if (entry.kind != EntryKind::NONE) state.entries.emplace(std::move(name), std::move(entry));
        }
        errno = 0;
    }
    loaded = loaded && errno == 0;
    (void)closedir(stream);
    return loaded;
}

void LocalUnitState::WatchNearestAncestor(size_t base) {
    std::string path = bases_[base].path;
    while (current_ && path.size() > 1) {
        size_t slash = path.rfind('/');
        path = slash == 0 ? std::string("/") : path.substr(0, slash);
        if (Watch(path, ANCESTOR_EVENTS, Watched{WatchKind::ANCESTOR, base, ""}) >= 0) return;
    }
    current_ = false;
}

bool LocalUnitState::LoadLinkDirectory(size_t base, const std::string& name) {
    const std::string path = bases_[base].path + "/" + name;
    LinkDirectory directory;
    directory.watch = Watch(path, DIRECTORY_EVENTS, Watched{WatchKind::LINK_DIRECTORY, base, name});
    DIR* stream = opendir(path.c_str());
    if (stream == nullptr) {
        // Not a directory after all, or gone again: nothing to look at.
        bool absent = errno == ENOENT || errno == ENOTDIR;
        if (directory.watch >= 0) {
            (void)inotify_rm_watch(notifications_, directory.watch);
            watches_.erase(directory.watch);
        }
        return absent;
    }
    if (directory.watch < 0) current_ = false;
    errno = 0;
    while (const dirent* item = readdir(stream)) {
        std::string link = item->d_name;
        bool is_link = item->d_type == DT_LNK ||
                       (item->d_type == DT_UNKNOWN && IsSymbolicLink(path + "/" + link));
        if (is_link && IsValidUnitName(link)) directory.links.insert(std::move(link));
        errno = 0;
    }
    bool listed = errno == 0;
    (void)closedir(stream);
    bases_[base].link_directories[name] = std::move(directory);
    return listed;
}

void LocalUnitState::ForgetLinkDirectory(size_t base, const std::string& name) {
    auto& directories = bases_[base].link_directories;
    auto found = directories.find(name);
    if (found == directories.end()) return;
    if (found->second.watch >= 0) {
        // May already be gone with its directory; either way no event of it counts now.
        (void)inotify_rm_watch(notifications_, found->second.watch);
        watches_.erase(found->second.watch);
    }
    directories.erase(found);
}

bool LocalUnitState::ApplyPendingEvents() {
    alignas(inotify_event) char buffer[EVENT_BUFFER_SIZE];
    for (;;) {
        ssize_t got = read(notifications_, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno == EAGAIN;
        for (ssize_t offset = 0; offset < got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            if (!ApplyEvent(*event)) return false;
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
}

// Each event only names what to look at again: the answer is read from the
// directory as it is now, so events applied late or twice do no harm.
bool LocalUnitState::ApplyEvent(const inotify_event& event) {
    if (event.mask & IN_Q_OVERFLOW) return false;
    auto found = watches_.find(event.wd);
    if (found == watches_.end()) return true;  // a watch already given up
    const Watched watched = found->second;
    const std::string name = event.len > 0 ? std::string(event.name) : std::string();
    switch (watched.kind) {
        case WatchKind::ANCESTOR:
            return false;
        case WatchKind::BASE:
            if (event.mask & GONE_EVENTS) return false;
            if (IsLinkDirectoryName(name)) {
                ForgetLinkDirectory(watched.base, name);
                return LoadLinkDirectory(watched.base, name) && current_;
            }
            if (IsValidUnitName(name)) RecheckEntry(watched.base, name);
            return true;
        case WatchKind::LINK_DIRECTORY:
            if (event.mask & GONE_EVENTS) {
                ForgetLinkDirectory(watched.base, watched.link_directory);
                return LoadLinkDirectory(watched.base, watched.link_directory) && current_;
            }
            if (IsValidUnitName(name)) RecheckLink(watched.base, watched.link_directory, name);
            return true;
    }
    return false;
}

void LocalUnitState::RecheckEntry(size_t base, const std::string& name) {
    Base& state = bases_[base];
    UnitEntry entry = ClassifyEntry(root_, state.path, name, DT_UNKNOWN);
    if (entry.kind == EntryKind::NONE) {
        state.entries.erase(name);
    } else {
        state.entries[name] = std::move(entry);
    }
}

void LocalUnitState::RecheckLink(size_t base, const std::string& directory,
                                 const std::string& name) {
    auto found = bases_[base].link_directories.find(directory);
    if (found == bases_[base].link_directories.end()) return;
    if (IsSymbolicLink(bases_[base].path + "/" + directory + "/" + name)) {
        found->second.links.insert(name);
    } else {
        found->second.links.erase(name);
    }
}

UnitEntry LocalUnitState::EntryOf(size_t base, const std::string& name) const {
    if (base >= bases_.size()) return UnitEntry();
    auto found = bases_[base].entries.find(name);
    return found == bases_[base].entries.end() ? UnitEntry() : found->second;
}

std::vector<std::string> LocalUnitState::LinksNamed(const std::string& name) const {
    std::vector<std::string> links;
    for (const Base& base : bases_) {
        for (const auto& [directory, state] : base.link_directories) {
            if (state.links.count(name) > 0) links.push_back(base.path + "/" + directory + "/" + name);
        }
    }
    return links;
}

}  // namespace velasystemd
