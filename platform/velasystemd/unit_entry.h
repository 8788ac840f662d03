// What a name in the unit directories stands for.
//
// An entry in a unit directory is a unit file, a link to one (followed to the
// end of the chain, absolute targets read inside the model's root), or a
// mask: a link to /dev/null at any step of the chain. Anything else (a
// directory, a dangling link, a link to a device) is no entry at all, so it
// hides nothing below it.
//
// Over all directories, the first entry for a name decides what the name is:
// - a mask: the unit is masked. Policy is still read from the first real file
//   below the mask, if there is one, so that a masked unit keeps its answers.
// - a file, or a link to a file of the same name: the unit's own file.
// - a link to a file with another valid unit name: an alias. Aliases are not
//   listed (the unit is listed under its own name) but every query by the
//   alias name is answered from the file it leads to. A link from an instance
//   to its template ("foo@bar.service" -> ".../foo@.service") is no alias: it
//   is the instance's own entry.
// A template ("foo@.service") is listed like any unit; an instance is listed
// when it has an entry of its own, and an instance without one uses its
// template's entry.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "unit_name.h"

namespace velasystemd {

enum class EntryKind { NONE, FILE, MASK };

struct UnitEntry {
    EntryKind kind = EntryKind::NONE;
    std::string file;     // the regular file reached, when kind is FILE
    bool linked = false;  // reached through a symbolic link
};

// Where a unit name leads over all unit directories.
struct UnitLocation {
    bool found = false;
    bool masked = false;
    bool alias = false;
    std::string file;  // the file policy is read from; "" when there is none
};

// The system unit directories under `root` ("" for the system itself) in
// precedence order. A directory that is the same as an earlier one (by device
// and inode, as /lib/systemd/system on a merged-/usr system) is left out.
std::vector<std::string> UnitDirectoriesUnder(const std::string& root);

// What the entry `directory`/`name` is. `type` is the dirent type when known
// (DT_UNKNOWN otherwise); it saves a system call for plain files.
UnitEntry ClassifyEntry(const std::string& root, const std::string& directory,
                        const std::string& name, unsigned char type);

// True once no lower entry can change `location` any more.
bool IsSettled(const UnitLocation& location);

// Folds `entry`, the next one for `name` in precedence order, into `location`;
// returns IsSettled(location).
bool FoldEntry(const std::string& name, const UnitEntry& entry, UnitLocation& location);

// Where `name` leads over `count` directories, highest precedence first, whose
// entries `entry_of(directory, name)` gives. An instance without an entry of
// its own leads where its template does.
template <typename EntryOf>
UnitLocation LocateUnit(const std::string& name, size_t count, EntryOf entry_of) {
    auto fold = [&](const std::string& candidate) {
        UnitLocation location;
        for (size_t directory = 0; directory < count && !IsSettled(location); ++directory) {
            FoldEntry(candidate, entry_of(directory, candidate), location);
        }
        return location;
    };
    UnitLocation location = fold(name);
    if (!location.found && IsInstanceName(name)) location = fold(TemplateOfInstance(name));
    return location;
}

}  // namespace velasystemd
