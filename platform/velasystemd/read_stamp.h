// Telling whether a directory may have changed since it was last read, from
// its identity and modification time.
//
// The kernel stamps a modification from a clock that advances in ticks, so a
// change made in the same tick as an earlier one leaves the time as it was. A
// read is therefore trusted only when the time it saw lies before the tick the
// read began in: any later change then stamps a later time. A read in the
// directory's own tick is "racy" (as git calls such index entries) and the
// directory is read again at the next look. Changes this library makes itself
// are stamped like any other, so they need no special handling.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <string>

namespace velasystemd {

class ReadStamp {
  public:
    // Takes the stamp of the directory at `path` as a read of it begins. A
    // missing directory has a stamp too: it changes when the directory appears.
    void Take(const std::string& path);

    // True when the directory at `path` is still as the last read saw it.
    bool IsCurrent(const std::string& path) const;

  private:
    struct Identity {
        dev_t device = 0;
        ino_t inode = 0;
        timespec modified = {0, 0};
    };
    static Identity IdentityOf(const std::string& path);

    Identity seen_;
    bool trusted_ = false;  // nothing read yet, or read in the directory's own tick
};

}  // namespace velasystemd
