#include "file_io.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace velasystemd {
namespace {

constexpr const char TEMPORARY_SUFFIX[] = ".XXXXXX";

// Writes all of `text` to `fd`, resuming after short writes and signals.
bool WriteAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        done += static_cast<size_t>(written);
    }
    return true;
}

// Closes `fd` without disturbing the errno of the failure being reported.
void CloseKeepingErrno(int fd) {
    int saved = errno;
    (void)close(fd);
    errno = saved;
}

// Reads the regular file `fd` of `size` bytes into `text`; fails with EFBIG
// past `max_size`. The buffer has room for one byte more than the file, so a
// file that did not grow is read whole by one call, which comes back short.
bool ReadAll(int fd, size_t size, size_t max_size, std::string& text) {
    text.resize(std::min(size, max_size) + 1);
    size_t used = 0;
    for (;;) {
        ssize_t got = read(fd, &text[used], text.size() - used);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        used += static_cast<size_t>(got);
        if (used < text.size()) break;
        if (used > max_size) {
            errno = EFBIG;
            return false;
        }
        text.resize(std::min(2 * text.size(), max_size + 1));
    }
    text.resize(used);
    return true;
}

}  // namespace

bool ReadRegularFile(const std::string& path, size_t max_size, std::string& text,
                     int directory_fd) {
    // O_NONBLOCK: opening a FIFO must not wait for a writer that never comes.
    int fd = openat(directory_fd, path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) return false;
    struct stat status;
    if (fstat(fd, &status) < 0) {
        CloseKeepingErrno(fd);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        (void)close(fd);
        errno = EINVAL;
        return false;
    }
    bool read_whole = ReadAll(fd, static_cast<size_t>(status.st_size), max_size, text);
    CloseKeepingErrno(fd);
    return read_whole;
}

bool MakeDirectories(const std::string& path) {
    std::string directory = path;
    while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
    if (directory.empty() || directory == "/") return true;
    // Try the whole path first: it usually exists, and then one call is enough.
    if (mkdir(directory.c_str(), DIRECTORY_MODE) == 0 || errno == EEXIST) return true;
    if (errno != ENOENT) return false;
    size_t slash = directory.rfind('/');
    if (slash == std::string::npos) return false;
    if (!MakeDirectories(directory.substr(0, slash))) return false;
    return mkdir(directory.c_str(), DIRECTORY_MODE) == 0 || errno == EEXIST;
}

bool ReadLinkTarget(const std::string& path, std::string& target) {
    char buffer[PATH_MAX];
    ssize_t length = readlink(path.c_str(), buffer, sizeof buffer);
    if (length < 0) return false;
    if (static_cast<size_t>(length) == sizeof buffer) {
        errno = ENAMETOOLONG;
        return false;
    }
    target.assign(buffer, static_cast<size_t>(length));
    return true;
}

bool MakeLinkOnce(const std::string& target, const std::string& link) {
    if (symlink(target.c_str(), link.c_str()) == 0) return true;
    if (errno != EEXIST) return false;
    std::string existing;
    if (ReadLinkTarget(link, existing) && existing == target) return true;
    errno = EEXIST;
    return false;
}

bool TouchFile(const std::string& path) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK,
                  FILE_MODE);
    if (fd < 0) return false;
    (void)close(fd);
    return true;
}

bool ReplaceFile(const std::string& path, const std::string& text) {
    std::string temporary = path + TEMPORARY_SUFFIX;
    int fd = mkostemp(&temporary[0], O_CLOEXEC);
    if (fd < 0) return false;
    // mkostemp makes the file private; a drop-in must be readable by all.
    bool written = fchmod(fd, FILE_MODE) == 0 && WriteAll(fd, text);
    if (!written) {
        CloseKeepingErrno(fd);
    } else if (close(fd) < 0) {
        written = false;
    }
    if (written && rename(temporary.c_str(), path.c_str()) == 0) return true;
    int saved = errno;
    (void)unlink(temporary.c_str());
    errno = saved;
    return false;
}

}  // namespace velasystemd
