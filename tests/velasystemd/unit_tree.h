// A unit tree in a temporary directory under /dev/shm for the unit library's
// tests, removed when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "core_library.h"
#include "velacore/error_state.h"

namespace velasystemd_test {

constexpr const char ETC_UNITS[] = "/etc/systemd/system";
constexpr const char RUN_UNITS[] = "/run/systemd/system";
constexpr const char LOCAL_UNITS[] = "/usr/local/lib/systemd/system";
constexpr const char VENDOR_UNITS[] = "/usr/lib/systemd/system";
constexpr const char SUPPORT_TABLE[] = "/usr/vela/etc/unit-support.conf";
constexpr const char CHANGE_MARKS[] = "/etc/velasystemd/changed";

// The text of a unit file: a [Unit] section, then `policy` as the [X-Vela]
// section and `install` as the [Install] section when not empty.
std::string UnitText(const std::string& policy, const std::string& install = "");

// Clears the error state, so that a test sees what the next call records.
inline void ClearErrorState() { VLIBCErrSet(0, "", 0); }

class UnitTree : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // `relative` below the tree's root ("/etc/...").
    std::string Path(const std::string& relative) const { return root_ + relative; }
    // Writes a file, creating its parents.
    void Write(const std::string& relative, const std::string& text) const;
    // Makes the symbolic link `relative` -> `target` (taken verbatim), creating its parents.
    void Link(const std::string& relative, const std::string& target) const;
    std::string Read(const std::string& relative) const;
    std::string LinkTarget(const std::string& relative) const;
    bool Exists(const std::string& relative) const;

    std::string root_;
};

}  // namespace velasystemd_test
