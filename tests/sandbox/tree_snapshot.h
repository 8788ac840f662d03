// A whole directory tree captured for comparison: every path below a root
// with its file type, permission bits and content or link target.
#pragma once

#include <map>
#include <string>

namespace sandbox {

enum class EntryType { kDirectory, kFile, kSymlink, kOther };

struct TreeEntry {
    EntryType type;
    unsigned mode;        // permission bits; 0 for links, whose own bits mean nothing
    std::string content;  // a file's bytes or a link's target; "" otherwise

    bool operator==(const TreeEntry& other) const {
        return type == other.type && mode == other.mode && content == other.content;
    }
    bool operator!=(const TreeEntry& other) const { return !(*this == other); }
};

// Path relative to the root ("a.service.d/vela-pack.conf") -> entry. The root
// itself is not in it.
using TreeSnapshot = std::map<std::string, TreeEntry>;

// Expected entries, for writing the tree a test expects.
TreeEntry Dir(unsigned mode = 0755);
TreeEntry File(const std::string& content, unsigned mode = 0644);
TreeEntry Link(const std::string& target);

// Captures the tree below `root`, links not followed. A missing root gives an
// empty snapshot.
TreeSnapshot SnapshotTree(const std::string& root);

// One line per entry, "path type mode content", with control characters
// escaped: readable in a test failure message.
std::string DescribeEntry(const std::string& path, const TreeEntry& entry);
std::string DescribeTree(const TreeSnapshot& tree);

// "" when both trees are equal; otherwise "- " lines for entries only in (or
// different in) `expected` and "+ " lines for those of `actual`.
std::string DiffTrees(const TreeSnapshot& expected, const TreeSnapshot& actual);

}  // namespace sandbox
