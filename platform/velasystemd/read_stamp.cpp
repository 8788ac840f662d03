#include "read_stamp.h"

#include <sys/stat.h>

namespace velasystemd {
namespace {

bool IsBefore(const timespec& a, const timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

}  // namespace

ReadStamp::Identity ReadStamp::IdentityOf(const std::string& path) {
    Identity identity;
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
        identity = Identity{status.st_dev, status.st_ino, status.st_mtim};
    }
    return identity;
}

void ReadStamp::Take(const std::string& path) {
    // The clock the kernel stamps modifications from, read before the stamp.
    timespec tick;
    (void)clock_gettime(CLOCK_REALTIME_COARSE, &tick);
    seen_ = IdentityOf(path);
    trusted_ = IsBefore(seen_.modified, tick);
}

bool ReadStamp::IsCurrent(const std::string& path) const {
    if (!trusted_) return false;
    Identity now = IdentityOf(path);
    return now.device == seen_.device && now.inode == seen_.inode &&
           now.modified.tv_sec == seen_.modified.tv_sec &&
           now.modified.tv_nsec == seen_.modified.tv_nsec;
}

}  // namespace velasystemd
