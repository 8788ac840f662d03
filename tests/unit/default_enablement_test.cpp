// Default enablement: which units get enabled, which queries each unit costs,
// and which failures are worth a line.
#include <gmock/gmock.h>

#include "log_capture.h"
#include "scripted_platform.h"
#include "tasks.h"
#include "test_support.h"

namespace unit_test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char* TASK_FILE = "default_enablement.cpp";

class DefaultEnablement : public ScriptedTest {};

// The three queries of a unit that gets as far as being enabled.
std::vector<std::string> AllThreeQueries(const std::string& unit) {
    return {"VELASystemdIsDefaultEnableGet(" + unit + ")", "VELA::Systemd::IsEnableStatusChanged(" + unit + ")",
            "VELASystemdEnableInGenerator(" + unit + ")"};
}

TEST_F(DefaultEnablement, EachQueryIsMadeOnlyWhenTheOneBeforeAllowsIt) {
    Script(R"({"default_enable": {"off.service": false, "changed.service": true, "on.service": true},
               "changed": {"changed.service": true}})");
    EnableDefaultUnits({"off.service", "changed.service", "on.service"});
    std::vector<std::string> calls = {"VELASystemdIsDefaultEnableGet(off.service)",
                                      "VELASystemdIsDefaultEnableGet(changed.service)",
                                      "VELA::Systemd::IsEnableStatusChanged(changed.service)"};
    const std::vector<std::string> enabling = AllThreeQueries("on.service");
    calls.insert(calls.end(), enabling.begin(), enabling.end());
    EXPECT_THAT(scripted::Calls(), ElementsAreArray(calls));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

TEST_F(DefaultEnablement, FailuresButNoPolicyAreLoggedAndEveryListedNameIsHandledInTurn) {
    // bad.service fails after setting its flag; refused.service is listed twice.
    Script(R"({"default_enable": {"bad.service": {"fail": "0x702", "sets": true}, "good.service": true,
                                  "refused.service": true},
               "enable": {"refused.service": {"fail": "0x702"}}})");
    EnableDefaultUnits({"bad.service", "quiet.service", "refused.service", "refused.service", "good.service"});
    std::vector<std::string> calls = {"VELASystemdIsDefaultEnableGet(bad.service)", "VLIBCErrGet()",
                                      "VELASystemdIsDefaultEnableGet(quiet.service)", "VLIBCErrGet()"};
    for (const char* unit : {"refused.service", "refused.service", "good.service"}) {
        const std::vector<std::string> enabling = AllThreeQueries(unit);
        calls.insert(calls.end(), enabling.begin(), enabling.end());
    }
    EXPECT_THAT(scripted::Calls(), ElementsAreArray(calls));
    EXPECT_THAT(LoggedLines(),
                ElementsAre(IsLogLine(TASK_FILE, "Fail to VELASystemdIsDefaultEnableGet in [bad.service]."),
                            IsLogLine(TASK_FILE, "Fail to enable unit [refused.service]."),
                            IsLogLine(TASK_FILE, "Fail to enable unit [refused.service].")));
}

}  // namespace
}  // namespace unit_test
