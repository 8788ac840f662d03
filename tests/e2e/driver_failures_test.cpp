// A failed unit listing ends the run with 1; failed forks cost only their task.
#include <algorithm>
#include <string>
#include <vector>

#include "generator_sandbox.h"

namespace e2e {
namespace {

using sandbox::Sandbox;

// The error state is read line first, then file, then code.
const std::vector<std::string> ERROR_STATE_READ = {"VLIBCErrorGetLine()", "VLIBCErrorGetFile()", "VLIBCErrGet()"};

const char* const UNITS = R"(["a.service", "b.service"])";

// A script under which every task would leave a trace, given its "units" and
// one more member.
std::string BusyScript(const std::string& units, const std::string& extraMember) {
    return R"({
        "units": )" + units + R"(,
        "support": {"a.service": false, "b.service": true},
        "packed_in": {"b.service": ["x.target"]},
        "enable_status": {"b.service": 1},
        "services_with_reason": ["a.service"],
        )" + extraMember + "}";
}

using DriverListing = GeneratorEndToEnd;

TEST_F(DriverListing, FailedListingLogsOneLineAndExitsOne) {
    static const struct {
        const char* fail;
        const char* printed;
    } cases[] = {
        {"31", "0x001F"},
        {"1792", "0x0700"},
        {"\"0xABCDE\"", "0xABCDE"},
        {"0", "0x0000"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fail);
        WriteScript(BusyScript(std::string(R"({"fail": )") + c.fail + R"(, "file": "list_units.cpp", "line": 77})",
                               R"("delay_ms": {})"));
        const sandbox::TreeSnapshot before = WholeTree();
        GeneratorRun run = RunWithGeneratorDirs();

        EXPECT_EQ(run.result.exitStatus, 1);
        std::vector<LogMessage> messages = run.Messages();
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].file, DRIVER_SOURCE);
        EXPECT_EQ(messages[0].text, std::string("Fail to list units.[") + c.printed + " list_units.cpp:77]");
        ASSERT_EQ(run.Pids().size(), 1u) << "no child may be made";
        std::vector<std::string> expected = {LIST_UNITS};
        expected.insert(expected.end(), ERROR_STATE_READ.begin(), ERROR_STATE_READ.end());
        EXPECT_EQ(run.CallsOf(run.Pids()[0]), expected);
        EXPECT_EQ(sandbox::DiffTrees(before, WholeTree()), "");
    }
}

using DriverForkFailure = GeneratorEndToEnd;

TEST_F(DriverForkFailure, EveryForkFailingLogsFiveLinesAndExitsZero) {
    WriteScript(BusyScript(UNITS, R"("fork": {"fail": "0x71C", "file": "proc_fork.cpp", "line": 5})"));
    const sandbox::TreeSnapshot before = WholeTree();
    GeneratorRun run = RunWithGeneratorDirs();

    EXPECT_EQ(run.result.exitStatus, 0);
    std::vector<LogMessage> messages = run.Messages();
    ASSERT_EQ(messages.size(), 5u);
    for (const LogMessage& message : messages) {
        EXPECT_EQ(message.file, DRIVER_SOURCE);
        EXPECT_EQ(message.line, messages[0].line) << "one place logs every failed fork";
        EXPECT_EQ(message.text, "Fail to fork.[0x071C proc_fork.cpp:5]");
    }
    ASSERT_EQ(run.Pids().size(), 1u);
    std::vector<std::string> expected = {LIST_UNITS};
    for (int task = 0; task < 5; ++task) {
        expected.push_back(FORK);
        expected.insert(expected.end(), ERROR_STATE_READ.begin(), ERROR_STATE_READ.end());
    }
    EXPECT_EQ(run.CallsOf(run.Pids()[0]), expected);
    EXPECT_EQ(sandbox::DiffTrees(before, WholeTree()), "") << "no task may run in the parent";
}

TEST_F(DriverForkFailure, FailedForkSkipsOnlyItsTask) {
    // The second fork is the masking task's.
    WriteScript(BusyScript(UNITS, R"("fork": {"fail": 31, "file": "proc_fork.cpp", "line": 9, "calls": [2]})"));
    GeneratorRun run = RunWithGeneratorDirs();

    EXPECT_EQ(run.result.exitStatus, 0);
    std::vector<LogMessage> messages = run.Messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].file, DRIVER_SOURCE);
    EXPECT_EQ(messages[0].text, "Fail to fork.[0x001F proc_fork.cpp:9]");

    const int parent = run.Pids()[0];
    std::vector<std::string> expected = {LIST_UNITS, FORK, FORK};
    expected.insert(expected.end(), ERROR_STATE_READ.begin(), ERROR_STATE_READ.end());
    expected.insert(expected.end(), {FORK, FORK, FORK});
    EXPECT_EQ(run.CallsOf(parent), expected) << "the tasks after the failed one still start";
    for (const scripted::Call& call : run.calls) {
        EXPECT_EQ(call.text.find("VELASystemdIsSupportGet"), std::string::npos) << "the masking task ran";
    }
    sandbox::TreeSnapshot early = box_.Snapshot(Sandbox::EARLY_DIR);
    EXPECT_EQ(early.count("a.service"), 0u);
    EXPECT_EQ(early.count("a.service.d/vela-reason.conf"), 1u) << "the reason task ran";
    sandbox::TreeSnapshot normal = box_.Snapshot(Sandbox::NORMAL_DIR);
    EXPECT_EQ(normal.count("b.service.d/vela-pack.conf"), 1u) << "the pack task ran";
    EXPECT_EQ(normal.count("x.target.wants/b.service"), 1u);
}

}  // namespace
}  // namespace e2e
