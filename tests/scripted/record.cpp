#include "record.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace scripted {

std::string FormatText(const std::string& text) {
    std::string formatted;
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7F) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            formatted += escaped;
        } else {
            formatted += static_cast<char>(c);
        }
    }
    return formatted;
}

std::string FormatText(const char* text) { return text ? FormatText(std::string(text)) : "null"; }

std::string FormatSettings(const std::map<std::string, std::string>& settings) {
    std::string formatted = "{";
    for (const auto& [key, value] : settings) {
        if (formatted.size() > 1) {
            formatted += ", ";
        }
        formatted += FormatText(key) + "=" + FormatText(value);
    }
    return formatted + "}";
}

std::string FormatCall(const char* name, const std::vector<std::string>& args) {
    std::string call = std::string(name) + "(";
    for (size_t i = 0; i < args.size(); ++i) {
        call += (i ? ", " : "") + args[i];
    }
    return call + ")";
}

void AppendRecordLine(int fd, const std::string& text) {
    if (fd < 0) {
        return;
    }
    // One write() on an O_APPEND descriptor: the line lands whole, after every
    // line that any other process appended before.
    const std::string line = std::to_string(getpid()) + " " + text + "\n";
    ssize_t written;
    do {
        written = write(fd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
}

}  // namespace scripted
