// Catching syslog datagrams.
#include "syslog_socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace preview {

namespace {

// A BSD syslog header: "<PRI>Mmm dd hh:mm:ss " before "IDENT: TEXT".
constexpr size_t TIMESTAMP_LENGTH = 16;

std::string LineOf(std::string datagram) {
  while (!datagram.empty() && (datagram.back() == '\n' || datagram.back() == '\0')) datagram.pop_back();
  std::string::size_type close = datagram.find('>');
  if (datagram.empty() || datagram[0] != '<' || close == std::string::npos ||
      datagram.size() < close + 1 + TIMESTAMP_LENGTH)
    return datagram;
  return datagram.substr(0, close + 1) + " " + datagram.substr(close + 1 + TIMESTAMP_LENGTH);
}

}  // namespace

int BindLogSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return -1;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) {
    close(fd);
    return -1;
  }
  return fd;
}

void ReadLogLines(int fd, std::vector<std::string>& lines) {
  char buffer[65536];
  ssize_t got;
  while ((got = recv(fd, buffer, sizeof buffer, 0)) >= 0) {
    lines.push_back(LineOf(std::string(buffer, static_cast<size_t>(got))));
  }
}

}  // namespace preview
