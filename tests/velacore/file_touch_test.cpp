// Touching flag files: created when missing, never truncated, never through a link.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core_library.h"
#include "velacore/error_state.h"
#include "scratch_dir.h"

namespace {

constexpr int VLIBC_ERR_TOUCH_CODE = 0x712;

class FileTouch : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(scratch_.ok());
        VLIBCErrSet(0, "", 0);
    }

    // Expects the touch of `path` to fail with the touch error code.
    void ExpectTouchFails(const std::string& path) {
        EXPECT_LT(VLIBCFileTouch(path.c_str()), 0) << path;
        EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_TOUCH_CODE) << path;
    }

    ScratchDir scratch_;
};

TEST_F(FileTouch, CreatesAMissingFileWithMode0644WhateverTheUmask) {
    std::string flag = scratch_.Path("velaservicemigrate");
    mode_t previous = umask(077);
    int result = VLIBCFileTouch(flag.c_str());
    umask(previous);
    ASSERT_EQ(result, 0);
    struct stat made;
    ASSERT_EQ(lstat(flag.c_str(), &made), 0);
    EXPECT_TRUE(S_ISREG(made.st_mode));
    EXPECT_EQ(made.st_mode & 07777, 0644u);
    EXPECT_EQ(made.st_size, 0);
}

TEST_F(FileTouch, LeavesAnExistingFileAsItIs) {
    std::string flag = scratch_.Write("flag", "kept content");
    ASSERT_EQ(chmod(flag.c_str(), 0600), 0);
    EXPECT_EQ(VLIBCFileTouch(flag.c_str()), 0);
    EXPECT_EQ(VLIBCFileTouch(flag.c_str()), 0);
    EXPECT_EQ(ReadWholeFile(flag), "kept content");
    struct stat kept;
    ASSERT_EQ(stat(flag.c_str(), &kept), 0);
    EXPECT_EQ(kept.st_mode & 07777, 0600u);
}

TEST_F(FileTouch, RefusesADanglingLinkAndCreatesNothingBehindIt) {
    std::string target = scratch_.Path("target");
    std::string link = scratch_.Path("flag");
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    ExpectTouchFails(link);
    EXPECT_NE(access(target.c_str(), F_OK), 0) << "the link was followed";
}

TEST_F(FileTouch, RefusesALinkToAnExistingFile) {
    std::string target = scratch_.Write("target", "x");
    std::string link = scratch_.Path("flag");
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    ExpectTouchFails(link);
    EXPECT_EQ(ReadWholeFile(target), "x");
}

TEST_F(FileTouch, FailsWhenTheParentDirectoryIsMissing) {
    std::string flag = scratch_.Path("upgrade-bootup/flag");
    ExpectTouchFails(flag);
    EXPECT_NE(access(scratch_.Path("upgrade-bootup").c_str(), F_OK), 0);
}

TEST_F(FileTouch, FailsOnADirectoryOrFifoWithoutBlocking) {
    std::string directory = scratch_.Path("dir");
    std::string fifo = scratch_.Path("fifo");
    ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    ExpectTouchFails(directory);
    ExpectTouchFails(fifo);
}

TEST_F(FileTouch, EmptyOrNullPathIsFailure) {
    ExpectTouchFails("");
    VLIBCErrSet(0, "", 0);
    EXPECT_LT(VLIBCFileTouch(nullptr), 0);
    EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_TOUCH_CODE);
}

}  // namespace
