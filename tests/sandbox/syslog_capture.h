// Catching what a sandboxed program sends to syslog: a datagram socket that
// stands in for /dev/log, and the parsing of the lines it receives.
#pragma once

#include <string>
#include <vector>

namespace sandbox {

// One syslog datagram, "<PRI>Mmm dd hh:mm:ss IDENT: MESSAGE".
struct SyslogLine {
    int priority;         // facility * 8 + level; -1 when the datagram is malformed
    std::string ident;    // the program's name (glibc's default identity)
    std::string message;  // everything after "IDENT: "
    std::string raw;      // the datagram as received
};

// Splits a datagram into its parts; a trailing newline or NUL is dropped.
SyslogLine ParseSyslogDatagram(const std::string& datagram);

class SyslogSocket {
public:
    // Binds a non-blocking AF_UNIX datagram socket at `path`, replacing a stale
    // one. Throws std::runtime_error when it can't.
    explicit SyslogSocket(const std::string& path);
    // Closes and removes the socket.
    ~SyslogSocket();
    SyslogSocket(const SyslogSocket&) = delete;
    SyslogSocket& operator=(const SyslogSocket&) = delete;

    int Fd() const { return fd_; }
    const std::string& Path() const { return path_; }

    // Appends every datagram waiting now to `lines`, in arrival order.
    void Drain(std::vector<SyslogLine>& lines) const;

private:
    std::string path_;
    int fd_;
};

}  // namespace sandbox
