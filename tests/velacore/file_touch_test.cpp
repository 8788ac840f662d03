// Touching flag files: created when missing, never truncated, never through a link.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core_library.h"
#include "velacore/error_state.h"
#include "scratch_dir.h"

namespace {

class FileTouch : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(scratch_.ok()); }

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

TEST_F(FileTouch, FailsWithoutFollowingLinksBlockingOrCreatingParents) {
    std::string target = scratch_.Write("target", "x");
    ASSERT_EQ(symlink(target.c_str(), scratch_.Path("link-to-file").c_str()), 0);
    ASSERT_EQ(symlink(scratch_.Path("behind").c_str(), scratch_.Path("dangling").c_str()), 0);
    ASSERT_EQ(mkdir(scratch_.Path("dir").c_str(), 0755), 0);
    ASSERT_EQ(mkfifo(scratch_.Path("fifo").c_str(), 0644), 0);
    for (const char* name : {"link-to-file", "dangling", "upgrade-bootup/flag", "dir", "fifo"}) {
        VLIBCErrSet(0, "", 0);
        EXPECT_LT(VLIBCFileTouch(scratch_.Path(name).c_str()), 0) << name;
        EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_TOUCH) << name;
    }
    EXPECT_EQ(ReadWholeFile(target), "x");
    EXPECT_NE(access(scratch_.Path("behind").c_str(), F_OK), 0) << "the dangling link was followed";
    EXPECT_NE(access(scratch_.Path("upgrade-bootup").c_str(), F_OK), 0);
    for (const char* path : {"", static_cast<const char*>(nullptr)}) {
        VLIBCErrSet(0, "", 0);
        EXPECT_LT(VLIBCFileTouch(path), 0);
        EXPECT_EQ(VLIBCErrGet(), VLIBC_ERR_TOUCH);
    }
}

}  // namespace
