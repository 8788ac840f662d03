// What the unit tree holds, read at most once per process: the entries of the
// unit directories, the parsed unit files and the support table. A forked
// child inherits all of it, so the tasks of one run read nothing twice; and
// every fork copies it, so it is kept compact. Enable state is not kept here:
// it changes while the generator runs (see local_unit_state.h).
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "packed_facts.h"
#include "paths.h"
#include "support_table_parser.h"
#include "unit_entry.h"

namespace velasystemd {

class UnitCatalog {
  public:
    // `root` is prepended to every path ("" or "/" for the system itself).
    explicit UnitCatalog(const std::string& root);

    const std::string& Root() const { return root_; }
    const std::vector<std::string>& Directories() const { return directories_; }

    // Scans the unit directories on the first call. False with 0x704 when a
    // directory that exists cannot be listed; a missing one is just empty.
    bool LoadIndex();

    // Every name found by the scan, byte-wise ordered, each once. Requires
    // LoadIndex(), as do the next two.
    std::vector<std::string> Names() const;

    // Where `unit` leads according to the scan.
    UnitLocation Locate(const std::string& unit) const;

    // The scanned entry `name` of directory number `directory`.
    UnitEntry ScannedEntry(size_t directory, const std::string& name) const;

    // The facts of the unit file `file`, read and parsed on first use; not
    // valid when the file cannot be read or systemd would refuse it.
    const PackedFacts& Load(const std::string& file);

    // Loads the own file of every scanned unit, as forked processes will ask
    // about all of them. Requires LoadIndex().
    void LoadAll();

    // Load(file) when valid, else nullptr with 0x702.
    const PackedFacts* FactsOf(const std::string& file);

    // The support table, read on first use. Nullptr with 0x703 when it cannot
    // be read or understood.
    const SupportTable* Support();

  private:
    // A name and its entry in each directory: an EntryKind, with LINKED_ENTRY
    // added when reached through a link.
    struct ScannedUnit {
        std::string name;
        std::array<uint8_t, UNIT_DIRECTORY_COUNT> entries{};
        bool parsed = false;
        PackedFacts facts;  // of the name's first unlinked file, once parsed
    };
    static constexpr uint8_t LINKED_ENTRY = 0x80;

    bool ScanDirectory(size_t directory,
                       std::vector<std::pair<std::string, UnitEntry>>& found) const;
    void KeepScanned(std::vector<std::pair<std::string, UnitEntry>>& found,
                     const std::vector<size_t>& directory_of);
    const ScannedUnit* Find(const std::string& name) const;
    UnitEntry EntryIn(const ScannedUnit* unit, size_t directory) const;
    // The number of the scanned unit whose own file `file` is, or NOT_KEPT:
    // that unit keeps its facts. A unit's own file is its first unlinked one.
    size_t KeeperOf(const std::string& file) const;
    // The number of the directory holding the unit's own file, or NOT_KEPT.
    size_t OwnFileDirectory(const ScannedUnit& unit) const;
    static constexpr size_t NOT_KEPT = static_cast<size_t>(-1);

    std::string root_;
    std::vector<std::string> directories_;
    bool index_loaded_ = false;
    std::vector<ScannedUnit> units_;  // ordered by name
    // Where linked entries lead: (unit number, directory) -> file. Few.
    std::map<std::pair<size_t, size_t>, std::string> linked_files_;
    // Files that are no scanned unit's own, such as link targets elsewhere.
    std::unordered_map<std::string, PackedFacts> other_facts_;
    bool support_read_ = false;
    std::optional<SupportTable> support_;
};

}  // namespace velasystemd
