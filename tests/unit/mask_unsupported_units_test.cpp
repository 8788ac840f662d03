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

TEST_F(Masking, AnUnsupportedUnitIsLinkedToDevNullAndAFailedQueryStopsOnlyItsUnit) {
    Script(R"({"support": {"a.service": false, "bad.service": {"fail": "0x701"}, "b.service": true,
                           "c@x.service": false}})");
    MaskUnsupportedUnits(Dir(), {"a.service", "bad.service", "quiet.service", "b.service", "c@x.service"});
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"a.service", "-> /dev/null"}, {"c@x.service", "-> /dev/null"}}));
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdIsSupportGet(a.service)", "VELASystemdIsSupportGet(bad.service)",
                            "VLIBCErrGet()", "VELASystemdIsSupportGet(quiet.service)", "VLIBCErrGet()",
                            "VELASystemdIsSupportGet(b.service)", "VELASystemdIsSupportGet(c@x.service)"));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to get SupportKey in [bad.service].")));
}

TEST_F(Masking, AQueryThatFailsAfterSettingTheFlagToFalseNeverMasks) {
    Script(R"({"support": {"a.service": {"fail": 1792, "sets": false},
                           "b.service": {"fail": "0x702", "sets": false}}})");
    MaskUnsupportedUnits(Dir(), {"a.service", "b.service"});
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to get SupportKey in [b.service].")));
}

TEST_F(Masking, AnExistingPathIsNeverReplacedNorAUnitListedTwiceMaskedTwice) {
    WriteFile(Dir() + "/b.service", "[Unit]\n");
    Script(R"({"support": {"a.service": false, "b.service": false}})");
    MaskUnsupportedUnits(Dir(), {"a.service", "a.service", "b.service"});
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"a.service", "-> /dev/null"}, {"b.service", "file: [Unit]\n"}}));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to mask unit [a.service] (File exists)."),
                                           IsLogLine(TASK_FILE, "Fail to mask unit [b.service] (File exists).")));
}

TEST_F(Masking, AMissingDirectoryGivesOneLinePerUnsupportedUnit) {
    Script(R"({"support": {"a.service": false, "b.service": true, "c.service": false}})");
    MaskUnsupportedUnits(Dir() + "/missing", {"a.service", "b.service", "c.service"});
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
    EXPECT_THAT(LoggedLines(),
                ElementsAre(IsLogLine(TASK_FILE, "Fail to mask unit [a.service] (No such file or directory)."),
                            IsLogLine(TASK_FILE, "Fail to mask unit [c.service] (No such file or directory).")));
}

}  // namespace
}  // namespace unit_test
