// Masking: an unsupported unit gets EarlyDir/UNIT -> /dev/null, and only when
// the platform said so.
#include <gmock/gmock.h>

#include "log_capture.h"
#include "scripted_platform.h"
#include "tasks.h"
#include "test_support.h"

namespace unit_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* TASK_FILE = "mask_unsupported_units.cpp";

class Masking : public ScriptedTest {};

TEST_F(Masking, AnUnsupportedUnitIsLinkedToDevNull) {
    Script(R"({"support": {"a.service": false, "b.service": true, "c@x.service": false}})");
    MaskUnsupportedUnits(Dir(), {"a.service", "b.service", "c@x.service"});
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"a.service", "-> /dev/null"}, {"c@x.service", "-> /dev/null"}}));
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdIsSupportGet(a.service)", "VELASystemdIsSupportGet(b.service)",
                            "VELASystemdIsSupportGet(c@x.service)"));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

TEST_F(Masking, AFailedSupportQueryNeverMasks) {
    struct {
        const char* name;
        const char* script;
        const char* message;  // nullptr: nothing logged
    } cases[] = {
        {"no platform policy (0x700)", R"({})", nullptr},
        {"0x700 after setting the flag to false", R"({"support": {"a.service": {"fail": 1792, "sets": false}}})",
         nullptr},
        {"another code after setting the flag to false",
         R"({"support": {"a.service": {"fail": "0x702", "sets": false}}})", "Fail to get SupportKey in [a.service]."},
        {"the support table cannot be read", R"({"support": {"a.service": {"fail": "0x703"}}})",
         "Fail to get SupportKey in [a.service]."},
    };
    for (const auto& c : cases) {
        Script(c.script);
        MaskUnsupportedUnits(Dir(), {"a.service"});
        EXPECT_THAT(ReadTree(Dir()), IsEmpty()) << c.name;
        EXPECT_THAT(scripted::Calls(), ElementsAre("VELASystemdIsSupportGet(a.service)", "VLIBCErrGet()")) << c.name;
        if (c.message) {
            EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, c.message))) << c.name;
        } else {
            EXPECT_THAT(LoggedLines(), IsEmpty()) << c.name;
        }
    }
}

TEST_F(Masking, AFailedQueryDoesNotStopTheWalk) {
    Script(R"({"support": {"bad.service": {"fail": "0x701"}, "b.service": false}})");
    MaskUnsupportedUnits(Dir(), {"bad.service", "quiet.service", "b.service"});
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"b.service", "-> /dev/null"}}));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to get SupportKey in [bad.service].")));
}

TEST_F(Masking, AUnitListedTwiceIsMaskedOnceAndTheSecondAttemptLogged) {
    Script(R"({"support": {"a.service": false}})");
    MaskUnsupportedUnits(Dir(), {"a.service", "a.service"});
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"a.service", "-> /dev/null"}}));
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdIsSupportGet(a.service)", "VELASystemdIsSupportGet(a.service)"));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to mask unit [a.service] (File exists).")));
}

TEST_F(Masking, AnExistingPathIsNeverReplaced) {
    WriteFile(Dir() + "/a.service", "[Unit]\n");
    Script(R"({"support": {"a.service": false}})");
    MaskUnsupportedUnits(Dir(), {"a.service"});
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"a.service", "file: [Unit]\n"}}));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to mask unit [a.service] (File exists).")));
}

TEST_F(Masking, AMissingDirectoryGivesOneLinePerUnsupportedUnit) {
    Script(R"({"support": {"a.service": false, "b.service": true, "c.service": false}})");
    MaskUnsupportedUnits(Dir() + "/missing", {"a.service", "b.service", "c.service"});
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
    EXPECT_THAT(LoggedLines(),
                ElementsAre(IsLogLine(TASK_FILE, "Fail to mask unit [a.service] (No such file or directory)."),
                            IsLogLine(TASK_FILE, "Fail to mask unit [c.service] (No such file or directory).")));
}

TEST_F(Masking, AnEmptyListMakesNoCall) {
    MaskUnsupportedUnits(Dir(), {});
    EXPECT_THAT(scripted::Calls(), IsEmpty());
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

}  // namespace
}  // namespace unit_test
