// The error state as callers read it after a failure.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "core_library.h"
#include "velacore/error_state.h"

namespace {

TEST(ErrorState, TheLatestFailureReadsBackTheSameInAnyOrder) {
    VLIBCErrSet(0x701, "a_rather_long_file_name.cpp", 1000);
    VLIBCErrSet(0x703, "support_table.cpp", 41);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(VLIBCErrorGetLine(), 41);
        EXPECT_STREQ(VLIBCErrorGetFile(), "support_table.cpp");
        EXPECT_EQ(VLIBCErrGet(), 0x703);
    }
}

TEST(ErrorState, TheFileNameIsAlwaysAValidStringOfItsOwn) {
    char name[] = "enable_links.cpp";
    VLIBCErrSet(0x702, name, 12);
    memset(name, 'x', sizeof name - 1);
    EXPECT_STREQ(VLIBCErrorGetFile(), "enable_links.cpp") << "a copy, not the caller's buffer";

    std::string long_name(4096, 'n');
    VLIBCErrSet(0x702, long_name.c_str(), 3);
    std::string kept = VLIBCErrorGetFile();
    EXPECT_FALSE(kept.empty());
    EXPECT_LT(kept.size(), long_name.size());
    EXPECT_EQ(long_name.compare(0, kept.size(), kept), 0) << "not a prefix: " << kept;
    EXPECT_EQ(VLIBCErrorGetLine(), 3);

    VLIBCErrSet(0x711, nullptr, 6);
    ASSERT_NE(VLIBCErrorGetFile(), nullptr);
    EXPECT_STREQ(VLIBCErrorGetFile(), "");
    EXPECT_EQ(VLIBCErrGet(), 0x711);
}

TEST(ErrorState, MacroRecordsTheCallSite) {
    int line = __LINE__ + 1;
    VLIBC_ERR_SET(VLIBC_ERR_TOUCH);
    EXPECT_EQ(VLIBCErrGet(), 0x712);
    EXPECT_STREQ(VLIBCErrorGetFile(), "error_state_test.cpp");
    EXPECT_EQ(VLIBCErrorGetLine(), line);
}

}  // namespace
