#include "tree_snapshot.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

namespace sandbox {

namespace {

constexpr unsigned PERMISSION_BITS = 07777;

std::string ReadFileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

std::string ReadLinkTarget(const std::string& path) {
    std::vector<char> buffer(4096);
    ssize_t length = readlink(path.c_str(), buffer.data(), buffer.size());
    return length < 0 ? "" : std::string(buffer.data(), static_cast<size_t>(length));
}

// Directory entries without "." and "..", sorted so that the walk is stable.
std::set<std::string> ListDirectory(const std::string& path) {
    std::set<std::string> names;
    DIR* dir = opendir(path.c_str());
    if (!dir) {
        return names;
    }
    while (const dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.insert(name);
        }
    }
    closedir(dir);
    return names;
}

void SnapshotBelow(const std::string& root, const std::string& relative, TreeSnapshot& tree) {
    for (const std::string& name : ListDirectory(relative.empty() ? root : root + "/" + relative)) {
        const std::string path = relative.empty() ? name : relative + "/" + name;
        const std::string hostPath = root + "/" + path;
        struct stat info;
        if (lstat(hostPath.c_str(), &info) != 0) {
            continue;
        }
        unsigned mode = info.st_mode & PERMISSION_BITS;
        if (S_ISDIR(info.st_mode)) {
            tree[path] = Dir(mode);
            SnapshotBelow(root, path, tree);
        } else if (S_ISREG(info.st_mode)) {
            tree[path] = File(ReadFileBytes(hostPath), mode);
        } else if (S_ISLNK(info.st_mode)) {
            tree[path] = Link(ReadLinkTarget(hostPath));
        } else {
            tree[path] = {EntryType::kOther, mode, ""};
        }
    }
}

std::string Escape(const std::string& text) {
    std::string escaped;
    for (unsigned char c : text) {
        if (c == '\n') {
            escaped += "\\n";
        } else if (c < 0x20 || c == 0x7F || c == '\\') {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02X", c);
            escaped += code;
        } else {
            escaped += static_cast<char>(c);
        }
    }
    return escaped;
}

const char* TypeName(EntryType type) {
    switch (type) {
        case EntryType::kDirectory:
            return "dir";
        case EntryType::kFile:
            return "file";
        case EntryType::kSymlink:
            return "link";
        case EntryType::kOther:
            break;
    }
    return "other";
}

}  // namespace

TreeEntry Dir(unsigned mode) { return {EntryType::kDirectory, mode, ""}; }
TreeEntry File(const std::string& content, unsigned mode) { return {EntryType::kFile, mode, content}; }
TreeEntry Link(const std::string& target) { return {EntryType::kSymlink, 0, target}; }

TreeSnapshot SnapshotTree(const std::string& root) {
    TreeSnapshot tree;
    SnapshotBelow(root, "", tree);
    return tree;
}

std::string DescribeEntry(const std::string& path, const TreeEntry& entry) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", entry.mode);
    std::string line = path + " " + TypeName(entry.type);
    if (entry.type != EntryType::kSymlink) {
        line += std::string(" ") + mode;
    }
    if (entry.type == EntryType::kFile || entry.type == EntryType::kSymlink) {
        line += " \"" + Escape(entry.content) + "\"";
    }
    return line;
}

std::string DescribeTree(const TreeSnapshot& tree) {
    std::string lines;
    for (const auto& [path, entry] : tree) {
        lines += DescribeEntry(path, entry) + "\n";
    }
    return lines;
}

std::string DiffTrees(const TreeSnapshot& expected, const TreeSnapshot& actual) {
    std::string diff;
    for (const auto& [path, entry] : expected) {
        auto found = actual.find(path);
        if (found == actual.end() || found->second != entry) {
            diff += "- " + DescribeEntry(path, entry) + "\n";
        }
    }
    for (const auto& [path, entry] : actual) {
        auto found = expected.find(path);
        if (found == expected.end() || found->second != entry) {
            diff += "+ " + DescribeEntry(path, entry) + "\n";
        }
    }
    return diff;
}

}  // namespace sandbox
