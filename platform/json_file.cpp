#include "json_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <json/reader.h>

#include <cerrno>
#include <memory>

namespace {

// Legacy configuration files hold a few members; a larger file is not one,
// and reading it whole must not cost much memory.
constexpr size_t MAX_JSON_FILE_SIZE = 1024 * 1024;

// jsoncpp parses recursively, one level per nested array or object; this bounds
// its stack use far below what any thread has, sanitizers included.
constexpr int JSON_NESTING_LIMIT = 64;

constexpr size_t READ_CHUNK_SIZE = 16 * 1024;

// Closes a descriptor when it goes out of scope.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) {
            (void)close(fd_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// Reads `fd` to its end into `text`. False on a read error, or as soon as the
// content grows past `limit` (a file may grow, or report no size at all).
bool ReadAtMost(int fd, size_t limit, std::string& text) {
    char chunk[READ_CHUNK_SIZE];
    for (;;) {
        ssize_t got = read(fd, chunk, sizeof chunk);
        if (got == 0) {
            return true;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (text.size() + static_cast<size_t>(got) > limit) {
            return false;
        }
        text.append(chunk, static_cast<size_t>(got));
    }
}

// Reads the regular file at `path` (links followed) into `text`. Opening never
// blocks: O_NONBLOCK makes a FIFO without a writer open at once, and fstat then
// turns it away with devices, sockets and directories before any read.
bool ReadRegularFile(const std::string& path, std::string& text) {
    FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.get() < 0) {
        return false;
    }
    struct stat info;
    if (fstat(file.get(), &info) < 0 || !S_ISREG(info.st_mode)) {
        return false;
    }
    if (static_cast<unsigned long long>(info.st_size) > MAX_JSON_FILE_SIZE) {
        return false;
    }
    return ReadAtMost(file.get(), MAX_JSON_FILE_SIZE, text);
}

// Parses `text` strictly (no comments, no trailing content, no duplicate keys)
// into `value`; true only for an object at the root, since lookups by member
// name throw on any other kind of value.
bool ParseJsonObject(const std::string& text, Json::Value& value) {
    // JSON text never holds a raw NUL byte, and jsoncpp would take one for
    // the end of the input and accept whatever follows it.
    if (text.find('\0') != std::string::npos) {
        return false;
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = JSON_NESTING_LIMIT;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    const char* begin = text.data();
    return reader->parse(begin, begin + text.size(), &value, &errors) && value.isObject();
}

}  // namespace

bool LoadJsonFile(Json::Value& value, const std::string& path) {
    try {
        std::string text;
        return ReadRegularFile(path, text) && ParseJsonObject(text, value);
    } catch (const Json::Exception&) {
        // jsoncpp throws, even from parse(), once a document nests deeper than
        // the limit: that is just one more file that does not load.
        return false;
    } catch (...) {
        // Out of memory, or anything else a library throws: the caller
        // expects a result, never an exception.
        return false;
    }
}
