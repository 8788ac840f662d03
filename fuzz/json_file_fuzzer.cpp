// Fuzzes the loading of legacy JSON files through a real path, as the upgrade
// migration does: whatever the file holds, loading ends without an exception,
// and what loads is an object, the only value the migration can look into.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "fuzz_support.h"
#include "json_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // One in-memory file for every input, reached through /proc like any other path.
    static const int fd = memfd_create("legacy.json", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    REQUIRE(fd >= 0 && ftruncate(fd, 0) == 0);
    REQUIRE(size == 0 || pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));
    Json::Value value;
    if (!LoadJsonFile(value, path)) return 0;
    // JSON text never holds a raw NUL byte, and lookups by name need an object.
    REQUIRE(std::memchr(data, '\0', size) == nullptr && value.isObject());
    return 0;
}
