// Loading legacy JSON files: strict objects load; anything else is false, promptly.
#include <sys/stat.h>

#include "json_file.h"
#include "temp_dir.h"

namespace {

constexpr size_t MEBIBYTE = 1024 * 1024;

std::string ObjectOfSize(size_t size) { return "{\"a\":\"" + std::string(size - 8, 'x') + "\"}"; }
// An object nested `depth` levels deep: {"a":{"a":...{}...}}.
std::string Nested(size_t depth) {
    std::string text = "{}";
    while (--depth > 0) text = "{\"a\":" + text + "}";
    return text;
}

class JsonFile : public TempDirTest {
  protected:
    bool Load(const std::string& relative, Json::Value value = {}) { return LoadJsonFile(value, Path(relative)); }
};

TEST_F(JsonFile, LoadsOnlyAStrictObjectFromARegularFile) {
    Write("/ntpd.json", "{\"auto_start\": \"yes\", \"other\": [1, 2]}\n");
    Link("/link.json", Path("/ntpd.json"));
    Json::Value value;
    ASSERT_TRUE(LoadJsonFile(value, Path("/link.json")));
    EXPECT_EQ(value["auto_start"].asString(), "yes");
    const std::string NUL(1, '\0');
    const std::pair<std::string, bool> cases[] = {
        {"{}", true}, {Nested(32), true}, {ObjectOfSize(MEBIBYTE), true}, {ObjectOfSize(MEBIBYTE + 1), false},
        {Nested(200), false}, {std::string(100000, '['), false}, {"[1]", false}, {"42", false}, {"", false},
        {"{} trailing", false}, {"// c\n{}", false}, {"{'a': 1}", false}, {"{\"a\": 1,}", false},
        {"{\"a\": 1, \"a\": 2}", false}, {"{\"a\": 1", false}, {"{}" + NUL + "x", false},
    };
    for (const auto& [text, loads] : cases) {
        Write("/case.json", text);
        EXPECT_EQ(Load("/case.json"), loads) << text.substr(0, 40);
    }
    fs::create_directory(Path("/dir.json"));
    Link("/zero.json", "/dev/zero");
    ASSERT_EQ(mkfifo(Path("/fifo.json").c_str(), 0644), 0);
    for (const char* path : {"/dir.json", "/zero.json", "/fifo.json", "/missing.json"}) {
        EXPECT_FALSE(Load(path)) << path;
    }
}

}  // namespace
