// A directory under /dev/shm for one test, removed with all it holds when the
// test ends, passed or failed.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fs = std::filesystem;

class TempDirTest : public testing::Test {
  protected:
    void SetUp() override {
        root_ = "/dev/shm/vela-library-test.XXXXXX";
        ASSERT_NE(mkdtemp(&root_[0]), nullptr);
    }
    void TearDown() override { fs::remove_all(root_); }

    std::string Path(const std::string& relative) const { return root_ + relative; }
    // Writes a file or makes a link (when `link` is set), creating the parents.
    void Write(const std::string& relative, const std::string& text, bool link = false) const {
        fs::create_directories(fs::path(Path(relative)).parent_path());
        if (link) fs::create_symlink(text, Path(relative));
        if (!link) std::ofstream(Path(relative), std::ios::binary) << text;
    }
    void Link(const std::string& relative, const std::string& target) const { Write(relative, target, true); }
    std::string Read(const std::string& relative) const {
        std::ifstream in(Path(relative), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    bool Exists(const std::string& relative) const { return fs::is_symlink(Path(relative)) || fs::exists(Path(relative)); }

    std::string root_;
};
