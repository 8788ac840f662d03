// The shared library's exported operations, called as the generator calls
// them. Only those that do not read the system's unit tree are run here.

#include <gtest/gtest.h>

#include <stdexcept>

#include "unit_library.h"
#include "unit_tree.h"

namespace velasystemd_test {
namespace {

using ExportedApi = UnitTree;

TEST_F(ExportedApi, DropInsAreWrittenAndLinked) {
    ASSERT_TRUE(VELA::Systemd::AddUnitSection(Path("/reason/"), "vela-reason.conf", "Service",
                                              {{"ExecStartPre", "/usr/vela/bin/velasystemctl x %n"}}));
    EXPECT_NE(Read("/reason/vela-reason.conf").find("\n[Service]\nExecStartPre=/usr/vela/bin/velasystemctl x %n\n"),
              std::string::npos);
    ASSERT_TRUE(VELA::Systemd::LinkVelaReason(Path("/early/a.service.d/"), Path("/reason/vela-reason.conf")));
    EXPECT_EQ(LinkTarget("/early/a.service.d/vela-reason.conf"), Path("/reason/vela-reason.conf"));
}

TEST_F(ExportedApi, InvalidNamesNeverReachTheTree) {
    EXPECT_THROW(VELA::Systemd::UnitPathGet("../../etc/passwd"), std::runtime_error);
    EXPECT_EQ(VELASystemdEnableStatusGetInGenerator("no such unit"), -1);
    EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_NO_SUCH_UNIT);
}

}  // namespace
}  // namespace velasystemd_test
