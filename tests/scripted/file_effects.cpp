#include "file_effects.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace scripted {

const char* const REASON_LINK_NAME = "vela-reason.conf";

namespace {

constexpr mode_t DIR_MODE = 0755;
constexpr mode_t FILE_MODE = 0644;

bool MakeOneDirectory(const std::string& path) {
    if (mkdir(path.c_str(), DIR_MODE) == 0) {
        return true;
    }
    if (errno != EEXIST) {
        return false;
    }
    struct stat info;
    if (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
        return true;
    }
    errno = ENOTDIR;
    return false;
}

bool WriteAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
    return true;
}

}  // namespace

bool MakeDirectories(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (!MakeOneDirectory(path.substr(0, slash))) {
            return false;
        }
    }
    return path.empty() || path.back() == '/' || MakeOneDirectory(path);
}

bool WriteSectionFile(const std::string& path, const std::string& section,
                      const std::map<std::string, std::string>& settings) {
    std::string text = "[" + section + "]\n";
    for (const auto& [key, value] : settings) {
        text += key + "=" + value + "\n";
    }
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, FILE_MODE);
    if (fd < 0) {
        return false;
    }
    bool written = WriteAll(fd, text);
    int savedErrno = errno;
    close(fd);
    errno = savedErrno;
    return written;
}

bool LinkOnce(const std::string& target, const std::string& linkPath) {
    if (symlink(target.c_str(), linkPath.c_str()) == 0) {
        return true;
    }
    if (errno != EEXIST) {
        return false;
    }
    char existing[PATH_MAX];
    ssize_t length = readlink(linkPath.c_str(), existing, sizeof existing);
    bool same = length >= 0 && std::string(existing, static_cast<size_t>(length)) == target;
    errno = EEXIST;
    return same;
}

bool TouchFile(const std::string& path) {
    struct stat info;
    if (lstat(path.c_str(), &info) == 0) {
        return true;
    }
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, FILE_MODE);
    if (fd < 0) {
        return false;
    }
    close(fd);
    return true;
}

}  // namespace scripted
