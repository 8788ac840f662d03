// A machine in a state nobody planned for: a read-only or full generator
// directory, unit names full of systemd's escapes, a huge listing with
// repeated names, legacy files that are no files at all.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "base_platform.h"
#include "fault_sandbox.h"

namespace faults {
namespace {

using sandbox::Dir;
using sandbox::File;
using sandbox::Link;
using sandbox::TreeSnapshot;

// Read-only and full directories are mounted in a private mount namespace,
// which takes root.
bool CanMount() { return geteuid() == 0; }

TEST(HostileState, ReadOnlyEarlyDirCostsOnlyTheEarlyOutput) {
    if (!CanMount()) {
        GTEST_SKIP() << "a private mount namespace needs root";
    }
    FaultSandbox sandbox;
    PrepareBasePlatform(sandbox.Box());
    sandbox.WriteScript(ParseJson(BASE_SCRIPT));
    const FaultRun run = sandbox.Run(Mounts::kReadOnlyEarlyDir);

    EXPECT_EQ(run.result.exitStatus, 0);
    // The reason links fail inside the library and are not looked at.
    EXPECT_EQ(run.Messages(),
              (std::vector<Message>{{MASKING, "Fail to mask unit [a.service] (Read-only file system)."}}));
    TreeSnapshot expected = Union(run.before, BaseOutput());
    RemoveSubtree(expected, Early("a.service"));
    RemoveSubtree(expected, Early("a.service.d"));
    RemoveSubtree(expected, Early("b.service.d"));
    EXPECT_EQ(sandbox::DiffTrees(expected, run.after), "");
    EXPECT_EQ(ChangesOutsideItsPlaces(run.before, run.after), "");
    EXPECT_EQ(run.CallsOf(ENABLING), std::vector<std::string>{ENABLE_B});
}

// "Fail to create [/run/systemd/generator/T.wants/] [0xCODE FILE:LINE]" with
// a code of at least four upper-case hexadecimal digits; T goes to `target`.
bool IsWantsDirFailure(const std::string& text, std::string& target) {
    const std::string head = "Fail to create [/run/systemd/generator/";
    const std::string middle = ".wants/] [0x";
    const size_t targetEnd = text.find(middle);
    if (text.compare(0, head.size(), head) != 0 || targetEnd == std::string::npos || text.back() != ']') {
        return false;
    }
    target = text.substr(head.size(), targetEnd - head.size());
    const std::string state = text.substr(targetEnd + middle.size(), text.size() - targetEnd - middle.size() - 1);
    const size_t blank = state.find(' ');
    const size_t colon = state.rfind(':');
    if (blank == std::string::npos || blank < 4 || colon == std::string::npos || colon < blank ||
        colon + 1 == state.size()) {
        return false;
    }
    return state.find_first_not_of("0123456789ABCDEF") == blank &&
           state.find_first_not_of("0123456789", colon + 1) == std::string::npos;
}

TEST(HostileState, FullNormalDirCostsOnlyTheNormalOutput) {
    if (!CanMount()) {
        GTEST_SKIP() << "a private mount namespace needs root";
    }
    FaultSandbox sandbox;
    PrepareBasePlatform(sandbox.Box());
    sandbox.WriteScript(ParseJson(BASE_SCRIPT));
    const FaultRun run = sandbox.Run(Mounts::kFullNormalDir);

    EXPECT_EQ(run.result.exitStatus, 0);
    // The pack drop-in fails inside the library, unlogged; every ".wants/"
    // directory fails in the writer, which logs the error state of the moment.
    std::vector<std::string> targets;
    for (const Message& message : run.Messages()) {
        EXPECT_EQ(message.file, WANTS);
        std::string target;
        EXPECT_TRUE(IsWantsDirFailure(message.text, target)) << message.text;
        targets.push_back(target);
    }
    std::sort(targets.begin(), targets.end());
    // x.target for a.service and c.service (stay alive) and b.service (packed),
    // y.target for b.service.
    EXPECT_EQ(targets, (std::vector<std::string>{"x.target", "x.target", "x.target", "y.target"}));
    TreeSnapshot expected = Union(run.before, BaseOutput());
    RemoveSubtree(expected, NORMAL_OUT);
    expected[NORMAL_OUT] = Dir();
    EXPECT_EQ(sandbox::DiffTrees(expected, run.after), "");
    EXPECT_EQ(ChangesOutsideItsPlaces(run.before, run.after), "");
    EXPECT_EQ(run.CallsOf(ENABLING), std::vector<std::string>{ENABLE_B});
}

// Names as systemd writes them for devices, paths and instances, used
// verbatim: never unescaped, escaped again or split.
TEST(HostileState, EscapedUnitNamesAreUsedVerbatim) {
    const std::string dashed = "foo\\x2dbar.service";  // a literal backslash
    const std::string spaced = "with\\x20space.service";
    const std::string target = "x-y\\x2dz.target";
    const std::vector<std::string> masked = {"dev-sda1.device", dashed, "a:b.service", "getty@tty1.service",
                                             "getty@.service", spaced,  "sys-devices-pci0000:00-0000:00:1f.2.device"};
    Json::Value script;
    for (const std::string& unit : masked) {
        script["units"].append(unit);
        script["support"][unit] = false;
    }
    script["units"].append(target);
    script["services_with_reason"].append("getty@tty1.service");
    script["services_with_reason"].append(dashed);
    script["packed_in"]["a:b.service"].append(target);
    script["packed_in"]["getty@tty1.service"].append("getty.target");
    script["enable_status"]["a:b.service"] = 1;
    script["enable_status"]["getty@tty1.service"] = 1;
    script["default_enable"][spaced] = true;
    FaultSandbox sandbox;
    sandbox.WriteScript(script);
    const FaultRun run = sandbox.Run();

    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_EQ(run.Messages(), std::vector<Message>{});
    TreeSnapshot output = {
        {"run/velasystemd", Dir()},
        {"run/velasystemd/reason-conf", Dir()},
        {"run/velasystemd/reason-conf/vela-reason.conf",
         File("[Service]\nExecStartPre=/usr/vela/bin/velasystemctl check-service-reason %n\n")},
        {Early("getty@tty1.service.d"), Dir()},
        {Early("getty@tty1.service.d/vela-reason.conf"), Link(REASON_FILE)},
        {Early(dashed + ".d"), Dir()},
        {Early(dashed + ".d/vela-reason.conf"), Link(REASON_FILE)},
        {Normal("a:b.service.d"), Dir()},
        {Normal("a:b.service.d/vela-pack.conf"),
         File("[Unit]\nPartOf=" + target + "\nReloadPropagatedFrom=" + target + "\n")},
        {Normal(target + ".wants"), Dir()},
        {Normal(target + ".wants/a:b.service"), Link(UNIT_DIR + "a:b.service")},
        {Normal("getty@tty1.service.d"), Dir()},
        {Normal("getty@tty1.service.d/vela-pack.conf"),
         File("[Unit]\nPartOf=getty.target\nReloadPropagatedFrom=getty.target\n")},
        {Normal("getty.target.wants"), Dir()},
        {Normal("getty.target.wants/getty@tty1.service"), Link(UNIT_DIR + "getty@tty1.service")},
    };
    for (const std::string& unit : masked) {
        output[Early(unit)] = Link("/dev/null");
    }
    EXPECT_EQ(sandbox::DiffTrees(Union(run.before, output), run.after), "");
    EXPECT_EQ(run.CallsOf(ENABLING), std::vector<std::string>{"VELASystemdEnableInGenerator(" + spaced + ")"});
}

std::string NumberedUnit(int number) {
    char name[32];
    std::snprintf(name, sizeof name, "u%05d.service", number);
    return name;
}

// 10,000 names: 9,000 units, then the first 1,000 of them again. Every
// tenth unit is unsupported, every hundredth (from the second) enabled by
// default, every five-hundredth (from the third) packed in big.target.
TEST(HostileState, TenThousandNamesWithRepeats) {
    constexpr int DISTINCT = 9000;
    constexpr int REPEATED = 1000;
    Json::Value script;
    std::vector<std::string> listing;
    for (int i = 0; i < DISTINCT + REPEATED; ++i) {
        listing.push_back(NumberedUnit(i % DISTINCT));
    }
    TreeSnapshot output = {
        {"run/velasystemd", Dir()},
        {"run/velasystemd/reason-conf", Dir()},
        {"run/velasystemd/reason-conf/vela-reason.conf",
         File("[Service]\nExecStartPre=/usr/vela/bin/velasystemctl check-service-reason %n\n")},
        {Normal("big.target.wants"), Dir()},
    };
    for (int i = 0; i < DISTINCT; ++i) {
        const std::string unit = NumberedUnit(i);
        if (i % 10 == 0) {
            script["support"][unit] = false;
            output[Early(unit)] = Link("/dev/null");
        }
        if (i % 100 == 1) {
            script["default_enable"][unit] = true;
        }
        if (i % 500 == 2) {
            script["packed_in"][unit].append("big.target");
            script["enable_status"][unit] = 1;
            output[Normal(unit + ".d")] = Dir();
            output[Normal(unit + ".d/vela-pack.conf")] =
                File("[Unit]\nPartOf=big.target\nReloadPropagatedFrom=big.target\n");
            output[Normal("big.target.wants/" + unit)] = Link(UNIT_DIR + unit);
        }
    }
    std::vector<Message> expectedMessages;
    std::vector<std::string> expectedEnabling;
    for (int i = 0; i < DISTINCT + REPEATED; ++i) {
        const std::string& unit = listing[i];
        script["units"].append(unit);
        const int number = i % DISTINCT;
        const bool repeat = i >= DISTINCT;
        if (repeat && number % 10 == 0) {
            expectedMessages.push_back({MASKING, "Fail to mask unit [" + unit + "] (File exists)."});
        }
        if (repeat && number % 500 == 2) {
            expectedMessages.push_back({WANTS, "Fail to create link from [/run/systemd/generator/big.target.wants/] "
                                               "to [" + UNIT_DIR + unit + "] (File exists)."});
        }
        if (number % 100 == 1) {
            expectedEnabling.push_back("VELASystemdEnableInGenerator(" + unit + ")");
        }
    }
    FaultSandbox sandbox;
    sandbox.WriteScript(script);
    const auto start = std::chrono::steady_clock::now();
    const FaultRun run = sandbox.Run();
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    EXPECT_EQ(run.result.exitStatus, 0);
    const std::vector<Message> messages = Sorted(run.Messages());
    EXPECT_EQ(messages.size(), expectedMessages.size());
    EXPECT_EQ(messages, Sorted(expectedMessages));
    EXPECT_EQ(sandbox::DiffTrees(Union(run.before, output), run.after), "");
    EXPECT_EQ(ChangesOutsideItsPlaces(run.before, run.after), "");
    EXPECT_EQ(run.CallsOf(ENABLING), expectedEnabling) << "list order, a repeated name enabled twice";
    RecordProperty("seconds", std::to_string(seconds));
}

// Legacy files that cannot load, among them a FIFO nobody writes to, are
// passed over silently without holding up the boot; the good file after them
// still counts, and everything goes with the directory.
TEST(HostileState, UnloadableLegacyFilesArePassedOver) {
    const std::string overrideDir = "/usr/vela/etc/velaservice.override";
    FaultSandbox sandbox;
    sandbox::Sandbox& box = sandbox.Box();
    box.WriteFile("/var/.UpgradeBootup", "");
    box.WriteFile("/.old_patch_info/VERSION", "7.2\n");
    box.WriteFile(overrideDir + "/ftpd.json", R"({"auto_start": "yes"})");
    ASSERT_EQ(mkfifo(box.HostPath(overrideDir + "/sftp.json").c_str(), 0644), 0);
    box.MakeDirectory(overrideDir + "/telnetd.json");
    box.WriteFile(overrideDir + "/heartbeat.json",
                  R"({"auto_start": "yes", "pad": ")" + std::string(2 << 20, 'x') + "\"}");
    box.WriteFile(overrideDir + "/ddns.json", R"([{"auto_start": "yes"}])");
    box.WriteFile(overrideDir + "/nfsd.json", std::string(R"({"auto_start": "yes"})") + '\0' + "x");
    box.WriteFile(overrideDir + "/ssh-shell.json",
                  R"({"auto_start": "yes", "a": )" + std::string(100000, '[') + std::string(100000, ']') + "}");
    box.WriteFile(overrideDir + "/cups-lpd.json", R"({"auto_start": "yes",})");
    Json::Value script;
    for (const char* unit : {"ftpd.service", "sshd.service", "inetd.service", "heartbeatd.service", "ddnsd.service",
                             "nfs-server.service"}) {
        script["enable_status"][unit] = 0;
    }
    sandbox.WriteScript(script);
    const FaultRun run = sandbox.Run();

    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_EQ(run.Messages(), std::vector<Message>{});
    EXPECT_EQ(run.CallsOf({"VELASystemdEnableInGenerator", "VELASystemdDisableInGenerator"}),
              std::vector<std::string>{"VELASystemdEnableInGenerator(ftpd.service)"});
    EXPECT_EQ(run.after.count(overrideDir.substr(1)), 0u);
    EXPECT_EQ(ChangesOutsideItsPlaces(run.before, run.after, {overrideDir.substr(1)}), "");
}

}  // namespace
}  // namespace faults
