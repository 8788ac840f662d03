// The syslog socket of the sandbox: a datagram socket at /dev/log inside it,
// so that the generator's log lines are caught exactly as it sent them.
#pragma once

#include <string>
#include <vector>

namespace preview {

// Binds a datagram socket at `path`. Returns its descriptor, or -1 with
// errno set.
int BindLogSocket(const std::string& path);

// Appends every datagram waiting on `fd` to `lines`, as "<PRI> IDENT: TEXT"
// (the timestamp dropped); never blocks.
void ReadLogLines(int fd, std::vector<std::string>& lines);

}  // namespace preview
