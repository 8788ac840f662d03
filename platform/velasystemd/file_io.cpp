#include "file_io.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace velasystemd {

bool ReadRegularFile(const char* path, size_t max_size, std::string& text,
                     int directory_fd) {
    // O_NONBLOCK: opening a FIFO must not wait for a writer that never comes.
    int fd = openat(directory_fd, path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) return false;
    struct stat status;
    bool regular = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    // One byte more than the file holds: a file that did not grow is read by
    // one call, which comes back short.
    text.resize(regular ? static_cast<size_t>(status.st_size) + 1 : 0);
    size_t used = 0;
    ssize_t got = 0;
    while (regular && used <= max_size &&
           ((got = read(fd, &text[used], text.size() - used)) > 0 || (got < 0 && errno == EINTR))) {
        if (got > 0) used += static_cast<size_t>(got);
        if (used == text.size()) text.resize(2 * text.size());
    }
    (void)close(fd);
    text.resize(used);
    return regular && got == 0 && used <= max_size;
}

bool MakeDirectories(const std::string& path) {
    std::string directory = path;
    while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
    if (directory.empty() || directory == "/") return true;
    // Try the whole path first: it usually exists, and then one call is enough.
    if (mkdir(directory.c_str(), DIRECTORY_MODE) == 0 || errno == EEXIST) return true;
    size_t slash = directory.rfind('/');
    if (errno != ENOENT || slash == std::string::npos) return false;
    if (!MakeDirectories(directory.substr(0, slash))) return false;
    return mkdir(directory.c_str(), DIRECTORY_MODE) == 0 || errno == EEXIST;
}

bool ReadLinkTarget(const std::string& path, std::string& target) {
    char buffer[PATH_MAX];
    ssize_t length = readlink(path.c_str(), buffer, sizeof buffer);
    if (length < 0 || static_cast<size_t>(length) == sizeof buffer) return false;
    target.assign(buffer, static_cast<size_t>(length));
    return true;
}

bool MakeLinkOnce(const std::string& target, const std::string& link) {
    if (symlink(target.c_str(), link.c_str()) == 0) return true;
    std::string existing;
    return errno == EEXIST && ReadLinkTarget(link, existing) && existing == target;
}

bool TouchFile(const std::string& path) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK,
                  FILE_MODE);
    return fd >= 0 && close(fd) == 0;
}

bool ReplaceFile(const std::string& path, const std::string& text) {
    std::string temporary = path + ".XXXXXX";
    int fd = mkostemp(&temporary[0], O_CLOEXEC);
    if (fd < 0) return false;
    // mkostemp makes the file private; a drop-in must be readable by all.
    bool written = fchmod(fd, FILE_MODE) == 0;
    for (size_t done = 0; written && done < text.size();) {
        ssize_t step = write(fd, text.data() + done, text.size() - done);
        written = step > 0 || (step < 0 && errno == EINTR);
        if (step > 0) done += static_cast<size_t>(step);
    }
    written = close(fd) == 0 && written;
    if (written && rename(temporary.c_str(), path.c_str()) == 0) return true;
    (void)unlink(temporary.c_str());
    return false;
}

}  // namespace velasystemd
