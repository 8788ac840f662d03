// Shared pieces of the in-process tests: a temporary directory per test, the
// scripted platform installed with its record inside it, and a directory tree
// read back as one value that a test compares whole.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace unit_test {

// A fresh directory under /dev/shm, removed with everything in it when the
// object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// Relative path -> what is there: "dir", "-> TARGET" for a symbolic link,
// "file: CONTENT" for a regular file, "other" for anything else. Links are
// not followed. A missing root reads as an empty tree.
using FileTree = std::map<std::string, std::string>;
FileTree ReadTree(const std::string& root);

void MakeDirectory(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
void MakeLink(const std::string& target, const std::string& path);
bool Exists(const std::string& path);  // links not followed

// A test with its own directory: Dir() is an empty generator directory in it,
// and Script() installs a script with a fresh record next to it and forgets
// what was logged so far.
class ScriptedTest : public testing::Test {
protected:
    ScriptedTest();

    void Script(const std::string& json);
    const std::string& Dir() const { return dir_; }
    std::string TempPath(const std::string& name) const { return temp_.Path() + "/" + name; }
    std::string RecordPath() const { return TempPath("record"); }

private:
    TempDir temp_;
    std::string dir_;
};

}  // namespace unit_test
