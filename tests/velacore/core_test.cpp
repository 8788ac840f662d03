// The stand-in core library (error state, fork, program runs, flag files) and
// the loading of legacy JSON files.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "core_library.h"
#include "json_file.h"
#include "program_run.h"
#include "temp_dir.h"
#include "velacore/error_state.h"

namespace {

constexpr int FORK_OPTIONS = 0xBB;  // the generator's option word: it must not change the fork

TEST(ErrorState, HoldsTheLastFailureWhateverTheOrderOfReading) {
    VLIBCErrSet(0x704, "unit_tree.cpp", 42);
    EXPECT_EQ(VLIBCErrorGetLine(), 42);
    EXPECT_STREQ(VLIBCErrorGetFile(), "unit_tree.cpp");
    EXPECT_EQ(VLIBCErrGet(), 0x704);
    VLIBCErrSet(0x701, std::string(1000, 'x').c_str(), 7);  // a copy of its own, cut to fit
    EXPECT_EQ(std::string(VLIBCErrorGetFile()), std::string(255, 'x'));
    VLIBCErrSet(0x702, nullptr, 1);
    EXPECT_STREQ(VLIBCErrorGetFile(), "");
}

TEST(ProcessFork, AnOrdinaryChildOrANegativeResultWithTheErrorState) {
    int pid = VLIBCProcForkEx(FORK_OPTIONS);
    if (pid == 0) _exit(42);
    ASSERT_GT(pid, 0);
    int status = 0;
    EXPECT_EQ(waitpid(-1, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 42);
    pid_t tester = fork();
    if (tester == 0) {  // as nobody, with no process allowed, fork fails
        rlimit none = {0, 0};
        bool limited = setuid(65534) == 0 && setrlimit(RLIMIT_NPROC, &none) == 0;
        _exit(limited && VLIBCProcForkEx(FORK_OPTIONS) < 0 && VLIBCErrGet() == 0x710 ? 0 : 1);
    }
    ASSERT_EQ(waitpid(tester, &status, 0), tester);
    EXPECT_EQ(status, 0);
}

TEST(ProgramRun, ReturnsTheExitStatusOfTheProgramWithItsArguments) {
    EXPECT_EQ(velacore::PROGRAM_RUN_TIMEOUT, std::chrono::seconds(20));
    EXPECT_EQ(VLIBCExec("/bin/sh", "-c", "[ $# = 1 ] && [ \"$0 $1\" = 'a b' ] && exit 7", "a", "b"), 7);
    EXPECT_EQ(VLIBCExec("/bin/sh", "-c", "[ $# = 0 ] && exit 5", nullptr, "ignored"), 5);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);  // the program starts with nothing blocked
    VLIBCErrSet(0, "", 0);
    EXPECT_EQ(VLIBCExec("/bin/sh", "-c", "kill -TERM $$; exit 0", nullptr, nullptr), -1);
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_EQ(VLIBCErrGet(), 0x711);
    VLIBCErrSet(0, "", 0);
    EXPECT_EQ(VLIBCExec("/nonexistent/program", nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x711);
}

TEST(ProgramRun, ATimeoutKillsAndReapsTheProgramAndWhatItStarted) {
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);  // orphans come here to be reaped
    int started[2];
    ASSERT_EQ(pipe(started), 0);
    std::string script = "sleep 30 & echo $! >&" + std::to_string(started[1]) + "; wait";
    const char* const argv[] = {"/bin/sh", "-c", script.c_str(), nullptr};
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(velacore::RunProgram(argv, std::chrono::milliseconds(300)), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    char pid_text[16] = {};
    ASSERT_GT(read(started[0], pid_text, sizeof pid_text - 1), 0);
    int status = 0;
    ASSERT_EQ(waitpid(atoi(pid_text), &status, 0), atoi(pid_text));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the background child";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "the program itself is reaped";
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

class FileTouch : public TempDirTest {};

TEST_F(FileTouch, CreatesAMissingFileAndNothingElse) {
    mode_t umask_before = umask(0077);
    EXPECT_EQ(VLIBCFileTouch(Path("/flag").c_str()), 0);
    umask(umask_before);
    EXPECT_EQ(fs::status(Path("/flag")).permissions(), fs::perms(0644));
    Write("/kept", "content");
    EXPECT_EQ(VLIBCFileTouch(Path("/kept").c_str()), 0);
    EXPECT_EQ(Read("/kept"), "content");
    Link("/link", Path("/kept"));
    Link("/dangling", Path("/gone"));
    ASSERT_TRUE(fs::create_directory(Path("/dir")) && mkfifo(Path("/fifo").c_str(), 0644) == 0);
    for (const char* bad : {"/link", "/dangling", "/dir", "/fifo", "/missing/flag"}) {
        VLIBCErrSet(0, "", 0);
        EXPECT_LT(VLIBCFileTouch(Path(bad).c_str()), 0) << bad;
        EXPECT_EQ(VLIBCErrGet(), 0x712) << bad;
    }
    EXPECT_FALSE(Exists("/gone") || Exists("/missing"));
    EXPECT_LT(VLIBCFileTouch(nullptr), 0);
}

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
    Link("/link.json", Path("/ntpd.json"));  // a link is followed
    Json::Value value;
    EXPECT_TRUE(LoadJsonFile(value, Path("/link.json")) && value["auto_start"].asString() == "yes");
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
    alarm(10);  // a load that waits for a writer ends the test here
    for (const char* path : {"/dir.json", "/zero.json", "/fifo.json", "/missing.json"}) {
        EXPECT_FALSE(Load(path)) << path;
    }
    // A FIFO holding a whole object, its writer gone: still no regular file.
    int reader = open(Path("/fifo.json").c_str(), O_RDONLY | O_NONBLOCK);
    int writer = open(Path("/fifo.json").c_str(), O_WRONLY);
    ASSERT_EQ(write(writer, "{}", 2), 2);
    close(writer);
    EXPECT_FALSE(Load("/fifo.json")) << "FIFO with an object";
    close(reader);
    alarm(0);
}

}  // namespace
