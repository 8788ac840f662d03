// The built libvelacore.so.7 as a caller loads it: the error state it starts
// with, and a failure read back through it. What it exports is checked whole
// by check_exports.cmake.

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

TEST(SharedLibrary, ErrorStateStartsEmptyAndShowsTheLibrarysOwnFailure) {
    void* handle = dlopen(VELACORE_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    auto* get_code = reinterpret_cast<int (*)()>(dlsym(handle, "VLIBCErrGet"));
    auto* get_file = reinterpret_cast<const char* (*)()>(dlsym(handle, "VLIBCErrorGetFile"));
    auto* get_line = reinterpret_cast<int (*)()>(dlsym(handle, "VLIBCErrorGetLine"));
    auto* touch = reinterpret_cast<int (*)(const char*)>(dlsym(handle, "VLIBCFileTouch"));
    ASSERT_TRUE(get_code != nullptr && get_file != nullptr && get_line != nullptr && touch != nullptr);
    EXPECT_EQ(get_code(), 0);
    ASSERT_NE(get_file(), nullptr);
    EXPECT_STREQ(get_file(), "");
    EXPECT_EQ(get_line(), 0);
    EXPECT_LT(touch("/dev/shm/velacore-test-no-such-dir/flag"), 0);
    EXPECT_EQ(get_code(), 0x712);
    EXPECT_STREQ(get_file(), "file_touch.cpp");
    dlclose(handle);
}

}  // namespace
