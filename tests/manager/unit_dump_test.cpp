// Reading the dump of systemd-analyze: blocks as systemd 252 writes them.
#include <gtest/gtest.h>

#include "unit_dump.h"

namespace {

using manager::DumpedUnit;
using manager::ParseUnitDump;

const char* const DUMP =
    "\t-> Unit nfs-server.service:\n"
    "\t\tDescription: Vela NFS server\n"
    "\t\tUnit Load State: loaded\n"
    "\t\tFragment Path: /etc/systemd/system/nfs-server.service\n"
    "\t\tDropIn Path: /tmp/systemd-temporary-NYpGrD/generator/nfs-server.service.d/vela-pack.conf\n"
    "\t\tDropIn Path: /tmp/systemd-temporary-NYpGrD/generator.early/nfs-server.service.d/vela-reason.conf\n"
    "\t\tRequires: system.slice (origin-file)\n"
    "\t\tPartOf: vela-net.target (origin-file)\n"
    "\t\tPartOf: vela-storage.target (origin-file)\n"
    "\t\tReloadPropagatedFrom: vela-net.target (origin-file)\n"
    "\t\t-> ExecStartPre:\n"
    "\t\t\tCommand Line: /usr/vela/bin/velasystemctl check-service-reason nfs-server.service\n"
    "\t\t-> ExecStart:\n"
    "\t\t\tCommand Line: /bin/sleep infinity\n"
    "\t\tCPUAccounting: no\n"
    "\t-> Unit vela-net.target:\n"
    "\t\tUnit Load State: loaded\n"
    "\t\tWants: nfs-server.service (origin-file)\n"
    "\t\tWants: ftpd.service (origin-file)\n"
    "\t\tConsistsOf: nfs-server.service (destination-file)\n";

TEST(UnitDump, SplitsTheDumpIntoUnits) {
    const auto units = ParseUnitDump(DUMP);
    ASSERT_EQ(units.size(), 2u);
    EXPECT_EQ(units.count("nfs-server.service"), 1u);
    EXPECT_EQ(units.count("vela-net.target"), 1u);
}

TEST(UnitDump, ReadsLoadStateAndDropInPathsInOrder) {
    const DumpedUnit unit = ParseUnitDump(DUMP).at("nfs-server.service");
    EXPECT_EQ(unit.loadState, "loaded");
    EXPECT_EQ(unit.dropInPaths,
              (std::vector<std::string>{
                  "/tmp/systemd-temporary-NYpGrD/generator/nfs-server.service.d/vela-pack.conf",
                  "/tmp/systemd-temporary-NYpGrD/generator.early/nfs-server.service.d/vela-reason.conf"}));
}

TEST(UnitDump, GathersDependenciesByKindWithoutTheirOrigin) {
    const auto units = ParseUnitDump(DUMP);
    EXPECT_EQ(units.at("nfs-server.service").Dependencies("PartOf"),
              (std::set<std::string>{"vela-net.target", "vela-storage.target"}));
    EXPECT_EQ(units.at("nfs-server.service").Dependencies("ReloadPropagatedFrom"),
              (std::set<std::string>{"vela-net.target"}));
    EXPECT_EQ(units.at("vela-net.target").Dependencies("Wants"),
              (std::set<std::string>{"ftpd.service", "nfs-server.service"}));
    EXPECT_TRUE(units.at("vela-net.target").Dependencies("PartOf").empty());
}

TEST(UnitDump, KeepsEachCommandLineUnderItsSetting) {
    const DumpedUnit unit = ParseUnitDump(DUMP).at("nfs-server.service");
    EXPECT_EQ(unit.Commands("ExecStartPre"),
              std::vector<std::string>{"/usr/vela/bin/velasystemctl check-service-reason nfs-server.service"});
    EXPECT_EQ(unit.Commands("ExecStart"), std::vector<std::string>{"/bin/sleep infinity"});
    EXPECT_TRUE(unit.Commands("ExecStop").empty());
}

TEST(UnitDump, IgnoresLinesOutsideUnitBlocks) {
    const auto units = ParseUnitDump("Timestamp firmware: n/a\n\tWants: x.service\n" + std::string(DUMP));
    EXPECT_EQ(units.size(), 2u);
}

}  // namespace
