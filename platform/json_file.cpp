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

// Reads the regular file at `path` (links followed) into `text`, false past
// the size limit (a file may grow while it is read). Opening never blocks:
// O_NONBLOCK opens a FIFO without a writer at once, and fstat turns it away
// with devices, sockets and directories before any read.
bool ReadRegularFile(const std::string& path, std::string& text) {
    int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat info;
    bool readable = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) &&
                    static_cast<unsigned long long>(info.st_size) <= MAX_JSON_FILE_SIZE;
    char chunk[READ_CHUNK_SIZE];
    ssize_t got = 0;
    while (readable && text.size() <= MAX_JSON_FILE_SIZE &&
           ((got = read(fd, chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR))) {
        if (got > 0) text.append(chunk, static_cast<size_t>(got));
    }
    (void)close(fd);
    return readable && got == 0 && text.size() <= MAX_JSON_FILE_SIZE;
}

// Parses `text` strictly (no comments, no trailing content, no duplicate keys)
// into `value`; true only for an object at the root, since lookups by member
// name throw on any other kind of value.
bool ParseJsonObject(const std::string& text, Json::Value& value) {
    // JSON text never holds a raw NUL byte, and jsoncpp would take one for
    // the end of the input and accept whatever follows it.
    if (text.find('\0') != std::string::npos) return false;
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = JSON_NESTING_LIMIT;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    return reader->parse(text.data(), text.data() + text.size(), &value, &errors) && value.isObject();
}

}  // namespace

bool LoadJsonFile(Json::Value& value, const std::string& path) {
    try {
        std::string text;
        return ReadRegularFile(path, text) && ParseJsonObject(text, value);
    } catch (...) {
        // jsoncpp throws, even from parse(), once a document nests deeper than
        // the limit; out of memory throws too: the caller expects a result.
        return false;
    }
}
