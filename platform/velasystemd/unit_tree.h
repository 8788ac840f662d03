// The unit tree as this process has read it: the entries of systemd's unit
// directories with their parsed files, the links of the local link
// directories, and the support table.
//
// The directories, highest precedence first: /etc/systemd/system,
// /run/systemd/system, /usr/local/lib/systemd/system, /usr/lib/systemd/system
// and /lib/systemd/system where it is not the same directory. The generator
// output directories are never read. An entry is a unit file, a link leading
// to one (followed to its end, absolute targets read inside the root), or a
// mask: a link to /dev/null at any step. Anything else is no entry and hides
// nothing below it. The first entry of a name decides what the name is; for a
// mask the first file below it still gives the policy. A link to a file with
// another valid unit name is an alias: answered from that file, never listed.
// An instance without an entry of its own leads where its template does.
//
// The tree is read once and parsed once; forked processes inherit it. Only
// the two local directories (/etc and /run), where enable state lives, are
// read again, when their stamps say they changed (read_stamp.h). The links of
// their *.wants/ and *.requires/ directories are never held: each query looks
// up the one name it asks about, so what it sees is what is there now, and
// what it costs does not grow with the changes a run makes to them.
#pragma once

#include <dirent.h>

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "read_stamp.h"
#include "unit_file.h"

namespace velasystemd {

inline constexpr const char* PERSISTENT_UNIT_DIR = "/etc/systemd/system";
inline constexpr const char* RUNTIME_UNIT_DIR = "/run/systemd/system";
inline constexpr const char* CHANGE_MARK_DIR = "/etc/velasystemd/changed";
inline constexpr const char* SUPPORT_TABLE_PATH = "/usr/vela/etc/unit-support.conf";

enum class EntryKind : uint8_t { FILE, MASK };

// Every process of a run holds the whole tree, and every fork copies what it
// takes up, so an entry is kept small: its name lies in its directory's
// `names`, only a link has a target path, and files that say the same share
// one value of their facts.
struct Entry {
    std::string_view name;                   // ends in a NUL, in UnitDirectory::names
    EntryKind kind = EntryKind::FILE;
    std::unique_ptr<std::string> link_file;  // for a link to a file: that file
    const UnitFacts* facts = nullptr;        // of the file once parsed, in UnitTree's pool
};

struct UnitDirectory {
    std::string path;
    bool local = false;  // /etc or /run: read again when changed
    ReadStamp stamp;
    std::vector<char> names;             // the entries' names, each ended by a NUL
    std::vector<Entry> entries;          // sorted by name
    std::vector<std::string> link_dirs;  // *.wants/, *.requires/ of a local directory, sorted
};

// Where a unit name leads. Valid until the tree is read again.
struct Location {
    bool found = false;
    bool masked = false;
    bool alias = false;
    const UnitDirectory* directory = nullptr;  // of the file the policy is read from
    Entry* file = nullptr;                     // nullptr: none (a mask with nothing below)
};

class UnitTree {
  public:
    // `root` is prepended to every path ("/" for the system itself).
    explicit UnitTree(const std::string& root);

    const std::string& root() const { return root_; }

    // Reads the unit directories on the first call; false with 0x704 when one
    // that exists cannot be listed.
    bool Load();
    // Parses every unit file read, so that forked processes inherit them.
    void ParseAll();
    // Reads again what changed in the local directories; false with 0x704.
    bool RefreshLocal();

    // Every name but aliases, byte-wise ordered, each once; of `type` only
    // when it is not empty, and only those `keep` holds to when it is given.
    std::vector<std::string> UnitNames(const std::string& type,
                                       const std::function<bool(const std::string&)>& keep = nullptr) const;
    Location Locate(const std::string& name);
    // The path of the located file; "" when there is none.
    static std::string PathOf(const Location& location);
    // The facts of the located file; nullptr with 0x702 when it cannot be read.
    const UnitFacts* FactsOf(const Location& location);
    // Fills `links` with the links named `name` in the local link directories,
    // as they are now; false with 0x704 when one cannot be looked into.
    bool LinksNamed(const std::string& name, std::vector<std::string>& links) const;
    // Nullptr with 0x703 when the table cannot be read or understood.
    const SupportTable* Support();

  private:
    bool ReadDirectory(UnitDirectory& directory);
    Location LocateName(const std::string& name);

    std::string root_;
    bool loaded_ = false;
    std::vector<UnitDirectory> directories_;
    // Adds `facts` to the pool unless it holds them already; where they lie.
    const UnitFacts* Pooled(UnitFacts facts);

    std::set<UnitFacts> facts_pool_;
    bool support_read_ = false;
    std::optional<SupportTable> support_;
};

}  // namespace velasystemd
