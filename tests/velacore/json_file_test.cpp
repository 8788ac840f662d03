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
constexpr std::chrono::seconds HANG_LIMIT{5};

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
    const std::string head = "{\"a\":\"";
    const std::string tail = "\"}";
    return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

TEST_F(JsonFile, LoadsAnObjectAndItsMembers) {
    std::string path = scratch_.Write("ntpd.json", "{\"auto_start\": \"yes\", \"other\": [1, 2]}\n");
    Json::Value value;
    ASSERT_TRUE(LoadJsonFile(value, path));
    ASSERT_TRUE(value.isObject());
    EXPECT_EQ(value["auto_start"].asString(), "yes");
    EXPECT_TRUE(value.isMember("other"));
    EXPECT_FALSE(value.isMember("missing"));
}

TEST_F(JsonFile, LoadsAnEmptyObjectAndModestNesting) {
    EXPECT_TRUE(Load(scratch_.Write("empty.json", "{}")));
    std::string nested = "{\"a\":{\"b\":{\"c\":{\"d\":{\"e\":[[[[[1]]]]]}}}}}";
    EXPECT_TRUE(Load(scratch_.Write("nested.json", nested)));
}

TEST_F(JsonFile, RejectsEverythingButAStrictlyValidObject) {
    static const struct {
        const char* name;
        const char* content;
    } cases[] = {
        {"array", "[1, 2, 3]"},
        {"string", "\"yes\""},
        {"number", "42"},
        {"null", "null"},
        {"boolean", "true"},
        {"empty file", ""},
        {"blanks only", "  \n"},
        {"trailing garbage", "{\"auto_start\": \"yes\"} trailing"},
        {"second document", "{} {}"},
        {"line comment", "// legacy\n{\"auto_start\": \"yes\"}"},
        {"block comment", "{\"auto_start\": /* on */ \"yes\"}"},
        {"single quotes", "{'auto_start': 'yes'}"},
        {"trailing comma", "{\"auto_start\": \"yes\",}"},
        {"duplicate key", "{\"auto_start\": \"yes\", \"auto_start\": \"no\"}"},
        {"unterminated", "{\"auto_start\": \"yes\""},
    };
    for (const auto& c : cases) {
        std::string path = scratch_.Write("case.json", c.content);
        EXPECT_FALSE(Load(path)) << c.name;
    }
}

TEST_F(JsonFile, RejectsARawNulByteAndWhatFollowsIt) {
    const std::string object = "{\"auto_start\": \"yes\"}";
    EXPECT_FALSE(Load(scratch_.Write("nul.json", object + std::string(1, '\0'))));
    EXPECT_FALSE(Load(scratch_.Write("nul-garbage.json", object + std::string(1, '\0') + "garbage")));
    EXPECT_FALSE(Load(scratch_.Write("nul-in-string.json", "{\"a\":\"x" + std::string(1, '\0') + "y\"}")));
}

TEST_F(JsonFile, AcceptsOneMebibyteAndRejectsOneByteMore) {
    EXPECT_TRUE(Load(scratch_.Write("limit.json", ObjectOfSize(MEBIBYTE))));
    EXPECT_FALSE(Load(scratch_.Write("over.json", ObjectOfSize(MEBIBYTE + 1))));
}

TEST_F(JsonFile, RejectsDeepNestingWithoutCrashing) {
    EXPECT_FALSE(Load(scratch_.Write("arrays.json", std::string(100000, '['))));
    std::string objects;
    for (int level = 0; level < 100000; ++level) {
        objects += "{\"a\":";
    }
    EXPECT_FALSE(Load(scratch_.Write("objects.json", objects)));
}

// An object nested `depth` levels deep: {"a":{"a":...{}...}}.
std::string ObjectNested(int depth) {
    std::string text;
    for (int level = 1; level < depth; ++level) {
        text += "{\"a\":";
    }
    return text + "{}" + std::string(static_cast<size_t>(depth - 1), '}');
}

TEST_F(JsonFile, AcceptsConfigurationDepthButNotHundredsOfLevels) {
    EXPECT_TRUE(Load(scratch_.Write("depth32.json", ObjectNested(32))));
    EXPECT_FALSE(Load(scratch_.Write("depth200.json", ObjectNested(200))));
}

TEST_F(JsonFile, FollowsALinkToAnObjectFile) {
    std::string target = scratch_.Write("target.json", "{\"auto_start\": \"no\"}");
    std::string link = scratch_.Path("link.json");
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    Json::Value value;
    ASSERT_TRUE(LoadJsonFile(value, link));
    EXPECT_EQ(value["auto_start"].asString(), "no");
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

// Lets a reader that is blocked on the FIFO go on: a writer comes and leaves.
void ReleaseFifoReader(const std::string& fifo) {
    int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
    if (writer >= 0) {
        close(writer);
    }
}

TEST_F(JsonFile, RejectsAFifoWithoutWaitingForAWriter) {
    std::string fifo = scratch_.Path("fifo.json");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    auto load = std::async(std::launch::async, [&] { return Load(fifo); });
    if (load.wait_for(HANG_LIMIT) != std::future_status::ready) {
        ReleaseFifoReader(fifo);
        ADD_FAILURE() << "loading a FIFO blocked";
    }
    EXPECT_FALSE(load.get());
}

}  // namespace
