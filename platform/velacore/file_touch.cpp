// Flag files: making sure a regular file exists at a path.
//
// The file is only ever created, with O_EXCL, so nothing that already lies at
// the path is opened: no link is followed, no FIFO or device is opened (and
// none can block or react to an open), and no existing file is truncated or
// changed. What is found there instead decides the result: a regular file is
// success, anything else (a link, dangling or not, a directory, a FIFO, a
// socket, a device) is failure, since no file of that name can be made.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core_library.h"
#include "velacore/error_state.h"

namespace {

// Fixed, whatever the caller's umask: flags are read by other tools.
constexpr mode_t FLAG_FILE_MODE = 0644;

// O_EXCL alone already refuses links and never opens an existing file;
// O_NOFOLLOW and O_NONBLOCK keep that so should O_EXCL ever be dropped.
constexpr int CREATE_FLAGS =
    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool IsRegularFileAt(const char* path) {
    struct stat found;
    return lstat(path, &found) == 0 && S_ISREG(found.st_mode);
}

// Creates the file; sets the mode explicitly because open() applies the umask.
bool CreateFlagFile(const char* path) {
    int fd = open(path, CREATE_FLAGS, FLAG_FILE_MODE);
    if (fd < 0) {
        return false;
    }
    bool moded = fchmod(fd, FLAG_FILE_MODE) == 0;
    bool closed = close(fd) == 0;
    return moded && closed;
}

}  // namespace

extern "C" int VLIBCFileTouch(const char* path) {
    if (path == nullptr) {
        VLIBC_ERR_SET(VLIBC_ERR_TOUCH);
        return -1;
    }
    if (CreateFlagFile(path)) {
        return 0;
    }
    if (errno == EEXIST && IsRegularFileAt(path)) {
        return 0;
    }
    VLIBC_ERR_SET(VLIBC_ERR_TOUCH);
    return -1;
}
