// Fuzzes the loading of legacy JSON files through a real path, as the upgrade
// migration does: whatever the file holds, loading ends without an exception,
// and what loads is an object, the only value the migration can look into.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "json_file.h"

namespace {

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// One in-memory file reused for every input, reached through /proc like any
// other path.
class MemoryFile {
public:
    MemoryFile() : fd_(memfd_create("legacy.json", MFD_CLOEXEC)) {
        Require(fd_ >= 0);
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }

    const std::string& Path() const { return path_; }

    void Replace(const uint8_t* data, size_t size) {
        Require(ftruncate(fd_, 0) == 0);
        size_t written = 0;
        while (written < size) {
            ssize_t got = pwrite(fd_, data + written, size - written, static_cast<off_t>(written));
            Require(got > 0);
            written += static_cast<size_t>(got);
        }
    }

private:
    int fd_;
    std::string path_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile file;
    file.Replace(data, size);

    Json::Value value;
    if (!LoadJsonFile(value, file.Path())) {
        return 0;
    }
    // JSON text never holds a raw NUL byte.
    Require(std::memchr(data, '\0', size) == nullptr);
    // The migration looks members up by name, which only an object allows.
    Require(value.isObject());
    return 0;
}
