// Loading legacy JSON files: objects load; anything else is false, promptly.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>

#include "json_file.h"
#include "scratch_dir.h"

namespace {

constexpr size_t MEBIBYTE = 1024 * 1024;

class JsonFile : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(scratch_.ok()); }

    bool Load(const std::string& path) {
        Json::Value value;
        return LoadJsonFile(value, path);
    }

    ScratchDir scratch_;
};

// A valid object of exactly `size` bytes: {"a":"xxx...x"}.
std::string ObjectOfSize(size_t size) {
    return "{\"a\":\"" + std::string(size - 8, 'x') + "\"}";
}

std::string Repeat(const std::string& text, size_t times) {
    std::string repeated;
    while (times-- > 0) {
        repeated += text;
    }
    return repeated;
}

// An object nested `depth` levels deep: {"a":{"a":...{}...}}.
std::string ObjectNested(size_t depth) {
    return Repeat("{\"a\":", depth - 1) + "{}" + std::string(depth - 1, '}');
}

TEST_F(JsonFile, LoadsAnObjectDirectlyOrThroughALink) {
    std::string path = scratch_.Write("ntpd.json", "{\"auto_start\": \"yes\", \"other\": [1, 2]}\n");
    std::string link = scratch_.Path("link.json");
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    for (const std::string& file : {path, link}) {
        Json::Value value;
        ASSERT_TRUE(LoadJsonFile(value, file)) << file;
        EXPECT_EQ(value["auto_start"].asString(), "yes");
        EXPECT_TRUE(value.isMember("other"));
        EXPECT_FALSE(value.isMember("missing"));
    }
}

TEST_F(JsonFile, AcceptsAnyStrictObjectOfConfigurationSizeAndDepth) {
    static const struct {
        const char* name;
        std::string content;
    } cases[] = {
        {"empty object", "{}"},
        {"modest nesting", "{\"a\":{\"b\":{\"c\":{\"d\":{\"e\":[[[[[1]]]]]}}}}}"},
        {"32 levels", ObjectNested(32)},
        {"exactly one mebibyte", ObjectOfSize(MEBIBYTE)},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(Load(scratch_.Write("case.json", c.content))) << c.name;
    }
}

TEST_F(JsonFile, RejectsEverythingButAStrictlyValidObject) {
    const std::string object = "{\"auto_start\": \"yes\"}";
    const struct {
        const char* name;
        std::string content;
    } cases[] = {
        {"array", "[1, 2, 3]"},
        {"string", "\"yes\""},
        {"number", "42"},
        {"null", "null"},
        {"boolean", "true"},
        {"empty file", ""},
        {"blanks only", "  \n"},
        {"trailing garbage", object + " trailing"},
        {"second document", "{} {}"},
        {"line comment", "// legacy\n" + object},
        {"block comment", "{\"auto_start\": /* on */ \"yes\"}"},
        {"single quotes", "{'auto_start': 'yes'}"},
        {"trailing comma", "{\"auto_start\": \"yes\",}"},
        {"duplicate key", "{\"auto_start\": \"yes\", \"auto_start\": \"no\"}"},
        {"unterminated", "{\"auto_start\": \"yes\""},
        {"raw NUL after the object", object + std::string(1, '\0')},
        {"raw NUL and garbage", object + std::string(1, '\0') + "garbage"},
        {"raw NUL in a string", "{\"a\":\"x" + std::string(1, '\0') + "y\"}"},
        {"one byte over a mebibyte", ObjectOfSize(MEBIBYTE + 1)},
        {"200 levels", ObjectNested(200)},
        {"100000 open arrays", Repeat("[", 100000)},
        {"100000 open objects", Repeat("{\"a\":", 100000)},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(Load(scratch_.Write("case.json", c.content))) << c.name;
    }
}

TEST_F(JsonFile, RejectsWhatIsNotARegularFile) {
    std::string directory = scratch_.Path("dir.json");
    std::string zero_link = scratch_.Path("zero.json");
    std::string dangling = scratch_.Path("dangling.json");
    ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
    ASSERT_EQ(symlink("/dev/zero", zero_link.c_str()), 0);
    ASSERT_EQ(symlink(scratch_.Path("gone").c_str(), dangling.c_str()), 0);
    EXPECT_FALSE(Load(directory)) << "directory";
    EXPECT_FALSE(Load(zero_link)) << "link to /dev/zero";
    EXPECT_FALSE(Load(dangling)) << "dangling link";
    EXPECT_FALSE(Load(scratch_.Path("missing.json"))) << "missing file";
}

TEST_F(JsonFile, RejectsAFifoWithoutWaitingForAWriter) {
    std::string fifo = scratch_.Path("fifo.json");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    auto load = std::async(std::launch::async, [&] { return Load(fifo); });
    if (load.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
        // A writer that comes and goes lets the blocked reader go on.
        int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
        if (writer >= 0) {
            close(writer);
        }
        ADD_FAILURE() << "loading a FIFO blocked";
    }
    EXPECT_FALSE(load.get());
}

}  // namespace
