#include "temporary_dir.h"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace sandbox {

namespace {
// tmpfs: ext4 is slow at the many small files a test makes.
const char* const TEMPORARY_ROOT = "/dev/shm/";
}  // namespace

TemporaryDir::TemporaryDir(const std::string& prefix) {
    std::string pattern = TEMPORARY_ROOT + prefix + "-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) {
        throw std::runtime_error("cannot create a directory like " + pattern);
    }
    path_ = buffer.data();
}

TemporaryDir::~TemporaryDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace sandbox
