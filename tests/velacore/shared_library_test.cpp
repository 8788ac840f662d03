// The built libvelacore.so.7 as a caller loads it: its exported operations and
// the error state it starts with.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

namespace {

class SharedLibrary : public testing::Test {
protected:
    void SetUp() override {
        handle_ = dlopen(VELACORE_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
    }
    void TearDown() override {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    template <typename Function>
    Function* Find(const char* name) {
        return reinterpret_cast<Function*>(dlsym(handle_, name));
    }

    void* handle_ = nullptr;
};

TEST_F(SharedLibrary, ExportsEveryCoreOperationUnderItsPlainName) {
    for (const char* name : {"VLIBCErrGet", "VLIBCErrorGetFile", "VLIBCErrorGetLine", "VLIBCErrSet",
                             "VLIBCProcForkEx", "VLIBCExec", "VLIBCFileTouch"}) {
        EXPECT_NE(dlsym(handle_, name), nullptr) << name;
    }
}

TEST_F(SharedLibrary, ErrorStateIsEmptyBeforeAnyFailure) {
    auto* get_code = Find<int()>("VLIBCErrGet");
    auto* get_file = Find<const char*()>("VLIBCErrorGetFile");
    auto* get_line = Find<int()>("VLIBCErrorGetLine");
    ASSERT_TRUE(get_code != nullptr && get_file != nullptr && get_line != nullptr);
    EXPECT_EQ(get_code(), 0);
    ASSERT_NE(get_file(), nullptr);
    EXPECT_STREQ(get_file(), "");
    EXPECT_EQ(get_line(), 0);
}

TEST_F(SharedLibrary, FailureOfAnOperationIsReadBackThroughTheLibrary) {
    auto* touch = Find<int(const char*)>("VLIBCFileTouch");
    auto* get_code = Find<int()>("VLIBCErrGet");
    auto* get_file = Find<const char*()>("VLIBCErrorGetFile");
    ASSERT_TRUE(touch != nullptr && get_code != nullptr && get_file != nullptr);
    EXPECT_LT(touch("/dev/shm/velacore-test-no-such-dir/flag"), 0);
    EXPECT_EQ(get_code(), 0x712);
    EXPECT_STREQ(get_file(), "file_touch.cpp");
}

}  // namespace
