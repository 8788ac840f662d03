// A directory under /dev/shm that lives as long as its owner.
#pragma once

#include <string>

namespace sandbox {

class TemporaryDir {
public:
    // Creates /dev/shm/<prefix>-XXXXXX; throws std::runtime_error when it can't.
    explicit TemporaryDir(const std::string& prefix);
    // Removes the directory with everything in it.
    ~TemporaryDir();
    TemporaryDir(const TemporaryDir&) = delete;
    TemporaryDir& operator=(const TemporaryDir&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

}  // namespace sandbox
