#include "syslog_capture.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace sandbox {

namespace {

// glibc's timestamp, "%h %e %T ", is always this long.
constexpr size_t TIMESTAMP_LENGTH = 16;
constexpr size_t MAX_DATAGRAM = 65536;
constexpr int RECEIVE_BUFFER = 4 << 20;

std::string WithoutTrailer(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\0')) {
        text.pop_back();
    }
    return text;
}

}  // namespace

SyslogLine ParseSyslogDatagram(const std::string& datagram) {
    SyslogLine line{-1, "", "", WithoutTrailer(datagram)};
    const std::string& text = line.raw;
    size_t close = text.find('>');
    if (text.empty() || text[0] != '<' || close == std::string::npos || close == 1 ||
        text.find_first_not_of("0123456789", 1) != close) {
        return line;
    }
    size_t identStart = close + 1 + TIMESTAMP_LENGTH;
    size_t separator = text.find(": ", identStart);
    if (identStart > text.size() || separator == std::string::npos) {
        return line;
    }
    line.priority = std::stoi(text.substr(1, close - 1));
    line.ident = text.substr(identStart, separator - identStart);
    line.message = text.substr(separator + 2);
    return line;
}

SyslogSocket::SyslogSocket(const std::string& path) : path_(path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error("socket path too long: " + path);
    }
    std::strcpy(address.sun_path, path.c_str());
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        throw std::runtime_error("cannot make a datagram socket");
    }
    // A burst of lines from five children must not block them while we poll.
    (void)setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER);
    unlink(path.c_str());
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd_);
        throw std::runtime_error("cannot bind " + path);
    }
}

SyslogSocket::~SyslogSocket() {
    close(fd_);
    unlink(path_.c_str());
}

void SyslogSocket::Drain(std::vector<SyslogLine>& lines) const {
    std::string buffer(MAX_DATAGRAM, '\0');
    for (;;) {
        ssize_t size = recv(fd_, buffer.data(), buffer.size(), 0);
        if (size < 0) {
            return;
        }
        lines.push_back(ParseSyslogDatagram(buffer.substr(0, static_cast<size_t>(size))));
    }
}

}  // namespace sandbox
