#include "test_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "log_capture.h"
#include "scripted_platform.h"

namespace fs = std::filesystem;

namespace unit_test {

TempDir::TempDir() {
    char pattern[] = "/dev/shm/vela-unit-XXXXXX";
    const char* made = mkdtemp(pattern);
    if (made == nullptr) {
        ADD_FAILURE() << "cannot make a temporary directory under /dev/shm";
        std::abort();
    }
    path_ = made;
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

namespace {

std::string ReadWhole(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::string Describe(const fs::directory_entry& entry) {
    const fs::file_status status = entry.symlink_status();
    if (fs::is_symlink(status)) {
        return "-> " + fs::read_symlink(entry.path()).string();
    }
    if (fs::is_directory(status)) {
        return "dir";
    }
    if (fs::is_regular_file(status)) {
        return "file: " + ReadWhole(entry.path());
    }
    return "other";
}

}  // namespace

FileTree ReadTree(const std::string& root) {
    FileTree tree;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(root, error), end; !error && entry != end;
         entry.increment(error)) {
        tree[entry->path().lexically_relative(root).string()] = Describe(*entry);
    }
    return tree;
}

void MakeDirectory(const std::string& path) { ASSERT_EQ(mkdir(path.c_str(), 0755), 0) << path; }

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    file << content;
    ASSERT_TRUE(file.good()) << path;
}

void MakeLink(const std::string& target, const std::string& path) {
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path;
}

bool Exists(const std::string& path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

ScriptedTest::ScriptedTest() : dir_(temp_.Path() + "/gen") {
    MakeDirectory(dir_);
    Script("{}");
}

void ScriptedTest::Script(const std::string& json) {
    scripted::Install(json, RecordPath());
    ClearLog();
}

}  // namespace unit_test
