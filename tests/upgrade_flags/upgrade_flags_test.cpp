// The run-once flags of the upgrade boot where the run directory or the flag
// directory is not what it should be. The scripted platform stands behind the
// generator; syslog() is this file's, so the log lines are read back here.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "upgrade_boot.h"

namespace {

std::vector<std::string> logged;

}  // namespace

// Keeps each message without its "file:line " prefix.
extern "C" void syslog(int, const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    const std::string line = text;
    logged.push_back(line.substr(line.find(' ') + 1));
}

namespace {

class UpgradeFlags : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/dev/shm/vela-flags-XXXXXX";
        dir_ = mkdtemp(pattern);
        logged.clear();
    }
    void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

    UpgradePaths Paths(const std::string& run, const std::string& flags) const {
        return UpgradePaths{"", "", dir_ + run, dir_ + flags, "", ""};
    }

    std::string dir_;
};

TEST_F(UpgradeFlags, RunDirectoryThatIsNoDirectoryMakesNoFlagAndTheStepRuns) {
    std::ofstream(dir_ + "/run") << "a file";
    EXPECT_FALSE(CheckAndSetUpgradeFlag("velaservicemigrate", Paths("/run", "/flags/")));
    EXPECT_EQ(logged, std::vector<std::string>{"velasystemd: /run is not a directory?"});
    EXPECT_NE(access((dir_ + "/flags").c_str(), F_OK), 0);
}

TEST_F(UpgradeFlags, FlagDirectoryThatCannotBeMadeIsLoggedWithItsReasonAndTheStepRuns) {
    EXPECT_FALSE(CheckAndSetUpgradeFlag("velaservicemigrate", Paths("", "/missing/flags/")));
    EXPECT_EQ(logged, (std::vector<std::string>{
                          "velasystemd: Fail to mkdir [" + dir_ + "/missing/flags/][No such file or directory]",
                          "velasystemd: Fail to touch [velaservicemigrate] flag"}));
}

TEST_F(UpgradeFlags, ExistingFlagOfAnyKindSkipsTheStepAndMakesNothing) {
    mkdir((dir_ + "/flags").c_str(), 0755);
    mkdir((dir_ + "/flags/velaservicemigrate").c_str(), 0700);
    EXPECT_TRUE(CheckAndSetUpgradeFlag("velaservicemigrate", Paths("", "/flags/")));
    EXPECT_TRUE(logged.empty());
}

}  // namespace
