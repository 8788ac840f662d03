// A temporary directory on tmpfs for one test, removed with everything in it.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class ScratchDir {
public:
    ScratchDir() {
        char pattern[] = "/dev/shm/velacore-test-XXXXXX";
        const char* made = mkdtemp(pattern);
        path_ = made != nullptr ? made : "";
    }
    ~ScratchDir() {
        if (!path_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(path_, ignored);
        }
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    bool ok() const { return !path_.empty(); }

    // The path of `name` inside the directory.
    std::string Path(const std::string& name) const { return path_ + "/" + name; }

    // Writes `content` to `name` and returns its path.
    std::string Write(const std::string& name, const std::string& content) const {
        std::string file = Path(name);
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::string path_;
};

// The whole content of a file, or "" when it cannot be read.
inline std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}
