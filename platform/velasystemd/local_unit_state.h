// The enable state held in the local unit directories (/etc/systemd/system and
// /run/systemd/system): their own entries (masks, local unit files) and the
// links in their *.wants/ and *.requires/ directories.
//
// Enable state must be read as it is at each query: other processes change it
// while the generator runs. Looking a unit up in every link directory at each
// query would cost more than everything else the generator does for the unit,
// so the state is read into memory once and, before every query, brought up to
// date from the kernel's change notifications (inotify) for exactly these
// directories. The kernel queues a notification before the change's system
// call returns, so a change completed before a query began is always seen.
// Notifications of one inotify instance go to whichever process reads them
// first, so a forked child starts its own. Where notifications are not
// available, everything is read again at each query.
#pragma once

#include <sys/inotify.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "unit_entry.h"

namespace velasystemd {

class LocalUnitState {
  public:
    // `bases` are the local unit directories, highest precedence first; link
    // targets are read inside `root`.
    LocalUnitState(std::string root, std::vector<std::string> bases);
    ~LocalUnitState();
    LocalUnitState(const LocalUnitState&) = delete;
    LocalUnitState& operator=(const LocalUnitState&) = delete;

    // Brings the state up to date. False when a base directory or one of its
    // link directories exists but cannot be read.
    bool Refresh();

    // The entry `name` in base number `base` (masks included).
    UnitEntry EntryOf(size_t base, const std::string& name) const;

    // The links named `name` in the link directories of every base.
    std::vector<std::string> LinksNamed(const std::string& name) const;

  private:
    struct LinkDirectory {
        int watch = -1;
        std::unordered_set<std::string> links;
    };
    struct Base {
        std::string path;
        std::unordered_map<std::string, UnitEntry> entries;
        std::map<std::string, LinkDirectory> link_directories;  // by name
    };
    enum class WatchKind { BASE, LINK_DIRECTORY, ANCESTOR };
    struct Watched {
        WatchKind kind;
        size_t base;
        std::string link_directory;  // its name, for LINK_DIRECTORY
    };

    bool Rebuild();
    bool LoadBase(size_t base);
    bool LoadLinkDirectory(size_t base, const std::string& name);
    void ForgetLinkDirectory(size_t base, const std::string& name);
    void WatchNearestAncestor(size_t base);
    int Watch(const std::string& path, uint32_t events, const Watched& watched);
    bool ApplyPendingEvents();
    bool ApplyEvent(const struct inotify_event& event);
    void RecheckEntry(size_t base, const std::string& name);
    void RecheckLink(size_t base, const std::string& directory, const std::string& name);

    std::string root_;
    std::vector<Base> bases_;
    std::unordered_map<int, Watched> watches_;
    int notifications_ = -1;
    pid_t owner_ = 0;
    bool current_ = false;  // the notifications cover everything read
};

}  // namespace velasystemd
