// A call without exactly three directories gets the usage text and nothing else.
#include <string>
#include <vector>

#include "generator_sandbox.h"

namespace e2e {
namespace {

// A script under which a complete run would log, write and call plenty, so
// that any of it happening on the usage path shows.
const char* const BUSY_SCRIPT = R"({
    "units": ["a.service", "b.service", "x.target"],
    "support": {"a.service": false, "b.service": {"fail": 9}},
    "services_with_reason": ["a.service"],
    "packed_in": {"b.service": ["x.target"]},
    "enable_status": {"b.service": 1}
})";

class DriverUsage : public GeneratorEndToEnd {
protected:
    void SetUp() override { WriteScript(BUSY_SCRIPT); }

    // The usage path, whatever the arguments: the text on standard error and
    // exit status 1, with no log line, no platform call and no file changed.
    void ExpectUsageOnly(const GeneratorRun& run, const std::string& programName,
                         const sandbox::TreeSnapshot& before) {
        EXPECT_EQ(run.result.exitStatus, 1);
        EXPECT_EQ(run.result.err, UsageText(programName));
        EXPECT_TRUE(run.result.log.empty());
        EXPECT_TRUE(run.calls.empty()) << run.calls.size() << " platform calls, first: " << run.calls[0].text;
        EXPECT_EQ(sandbox::DiffTrees(before, WholeTree()), "");
    }
};

TEST_F(DriverUsage, WrongArgumentCountsPrintUsageAndExitOne) {
    const std::vector<std::vector<std::string>> calls = {
        {},
        {"/run/systemd/generator"},
        {"/run/systemd/generator", "/run/systemd/generator.early"},
        {"/run/systemd/generator", "/run/systemd/generator.early", "/run/systemd/generator.late", "/run/extra"},
        {"a", "b", "c", "d", "e"},
    };
    for (const std::vector<std::string>& args : calls) {
        SCOPED_TRACE(std::to_string(args.size()) + " arguments");
        const sandbox::TreeSnapshot before = WholeTree();
        ExpectUsageOnly(Run(args), VELA_GENERATOR, before);
    }
}

TEST_F(DriverUsage, EmptyArgumentsStillCount) {
    const sandbox::TreeSnapshot before = WholeTree();
    ExpectUsageOnly(Run({"", ""}), VELA_GENERATOR, before);
}

TEST_F(DriverUsage, UsageNamesTheProgramExactlyAsCalled) {
    box_.MakeSymlink("/tmp/my generator", VELA_GENERATOR);
    const sandbox::TreeSnapshot before = WholeTree();
    ExpectUsageOnly(RunProgram("/tmp/my generator", {"one"}), "/tmp/my generator", before);
}

}  // namespace
}  // namespace e2e
