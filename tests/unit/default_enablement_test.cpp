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

struct UnitCase {
    const char* name;
    const char* script;
    std::vector<std::string> calls;
    const char* message;  // nullptr: nothing logged
};

TEST_F(DefaultEnablement, EachQueryIsMadeOnlyWhenTheOneBeforeAllowsIt) {
    const UnitCase cases[] = {
        {"enabled by default, status unchanged",
         R"({"default_enable": {"a.service": true}})",
         {"VELASystemdIsDefaultEnableGet(a.service)", "VELA::Systemd::IsEnableStatusChanged(a.service)",
          "VELASystemdEnableInGenerator(a.service)"},
         nullptr},
        {"not enabled by default",
         R"({"default_enable": {"a.service": false}})",
         {"VELASystemdIsDefaultEnableGet(a.service)"},
         nullptr},
        {"status changed",
         R"({"default_enable": {"a.service": true}, "changed": {"a.service": true}})",
         {"VELASystemdIsDefaultEnableGet(a.service)", "VELA::Systemd::IsEnableStatusChanged(a.service)"},
         nullptr},
        {"no platform policy (0x700)",
         R"({})",
         {"VELASystemdIsDefaultEnableGet(a.service)", "VLIBCErrGet()"},
         nullptr},
        {"query fails with another code after setting the flag",
         R"({"default_enable": {"a.service": {"fail": "0x702", "sets": true}}})",
         {"VELASystemdIsDefaultEnableGet(a.service)", "VLIBCErrGet()"},
         "Fail to VELASystemdIsDefaultEnableGet in [a.service]."},
        {"query fails with 0x701",
         R"({"default_enable": {"a.service": {"fail": "0x701"}}})",
         {"VELASystemdIsDefaultEnableGet(a.service)", "VLIBCErrGet()"},
         "Fail to VELASystemdIsDefaultEnableGet in [a.service]."},
        {"enabling fails",
         R"({"default_enable": {"a.service": true}, "enable": {"a.service": {"fail": "0x702"}}})",
         {"VELASystemdIsDefaultEnableGet(a.service)", "VELA::Systemd::IsEnableStatusChanged(a.service)",
          "VELASystemdEnableInGenerator(a.service)"},
         "Fail to enable unit [a.service]."},
    };
    for (const UnitCase& c : cases) {
        Script(c.script);
        EnableDefaultUnits({"a.service"});
        EXPECT_THAT(scripted::Calls(), ElementsAreArray(c.calls)) << c.name;
        if (c.message) {
            EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, c.message))) << c.name;
        } else {
            EXPECT_THAT(LoggedLines(), IsEmpty()) << c.name;
        }
    }
}

TEST_F(DefaultEnablement, AFailedUnitDoesNotStopTheWalk) {
    Script(R"({"default_enable": {"bad.service": {"fail": 1794}, "good.service": true,
                                  "refused.service": true},
               "enable": {"refused.service": false}})");
    EnableDefaultUnits({"bad.service", "quiet.service", "refused.service", "good.service"});
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdIsDefaultEnableGet(bad.service)", "VLIBCErrGet()",
                            "VELASystemdIsDefaultEnableGet(quiet.service)", "VLIBCErrGet()",
                            "VELASystemdIsDefaultEnableGet(refused.service)",
                            "VELA::Systemd::IsEnableStatusChanged(refused.service)",
                            "VELASystemdEnableInGenerator(refused.service)",
                            "VELASystemdIsDefaultEnableGet(good.service)",
                            "VELA::Systemd::IsEnableStatusChanged(good.service)",
                            "VELASystemdEnableInGenerator(good.service)"));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to VELASystemdIsDefaultEnableGet in [bad.service]."),
                                           IsLogLine(TASK_FILE, "Fail to enable unit [refused.service].")));
}

TEST_F(DefaultEnablement, ANameListedTwiceIsHandledTwice) {
    Script(R"({"default_enable": {"a.service": true}, "enable": {"a.service": false}})");
    EnableDefaultUnits({"a.service", "a.service"});
    const std::vector<std::string> once = {"VELASystemdIsDefaultEnableGet(a.service)",
                                           "VELA::Systemd::IsEnableStatusChanged(a.service)",
                                           "VELASystemdEnableInGenerator(a.service)"};
    std::vector<std::string> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_THAT(scripted::Calls(), ElementsAreArray(twice));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to enable unit [a.service]."),
                                           IsLogLine(TASK_FILE, "Fail to enable unit [a.service].")));
}

TEST_F(DefaultEnablement, AnEmptyListMakesNoCall) {
    EnableDefaultUnits({});
    EXPECT_THAT(scripted::Calls(), IsEmpty());
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

}  // namespace
}  // namespace unit_test
