// Isolation stay-alive links: both sides of the relation gathered into one
// map, then written by the wants-link writer in one go.
#include <gmock/gmock.h>

#include "log_capture.h"
#include "scripted_platform.h"
#include "tasks.h"
#include "test_support.h"

namespace unit_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* TASK_FILE = "stay_alive_links.cpp";

class StayAliveLinks : public ScriptedTest {};

TEST_F(StayAliveLinks, BothSidesAreGatheredBeforeAnythingIsWritten) {
    // b.service has no platform policy: silent, and the targets' side still runs.
    Script(R"({"belongs_to": {"a.service": ["x.target", "x.target"], "x.target": []},
               "target_carries": {"x.target": ["a.service", "c.service", "b.service"]},
               "enable_status": {"a.service": 1, "b.service": 0, "c.service": 1}})");
    AddStayAliveLinks(Dir(), {"a.service", "b.service", "x.target"});
    // a.service is named again and again, from both sides, and linked once;
    // c.service is carried by the target without being listed, and linked.
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdBelongsToGet(a.service)", "VELASystemdBelongsToGet(b.service)",
                            "VLIBCErrGet()", "VELASystemdBelongsToGet(x.target)",
                            "VELA::Systemd::UnitTypeGet(a.service)", "VELA::Systemd::UnitTypeGet(b.service)",
                            "VELA::Systemd::UnitTypeGet(x.target)", "VELASystemdTargetCarriesGet(x.target)",
                            "VELASystemdEnableStatusGetInGenerator(a.service)",
                            "VELA::Systemd::UnitPathGet(a.service)",
                            "VELASystemdEnableStatusGetInGenerator(b.service)",
                            "VELASystemdEnableStatusGetInGenerator(c.service)",
                            "VELA::Systemd::UnitPathGet(c.service)"));
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"x.target.wants", "dir"},
                                         {"x.target.wants/a.service", "-> /usr/lib/systemd/system/a.service"},
                                         {"x.target.wants/c.service", "-> /usr/lib/systemd/system/c.service"}}));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

TEST_F(StayAliveLinks, OnlyUnitsOfTypeExactlyTargetAreAskedWhatTheyCarry) {
    Script(R"({"belongs_to": {"upper.target": [], "plain.target": [], "named.service": []},
               "type": {"upper.target": "Target", "named.service": "target"},
               "target_carries": {"upper.target": ["a.service"], "plain.target": ["b.service"],
                                  "named.service": ["c.service"]}})");
    AddStayAliveLinks(Dir(), {"upper.target", "plain.target", "named.service"});
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdBelongsToGet(upper.target)", "VELASystemdBelongsToGet(plain.target)",
                            "VELASystemdBelongsToGet(named.service)", "VELA::Systemd::UnitTypeGet(upper.target)",
                            "VELA::Systemd::UnitTypeGet(plain.target)", "VELASystemdTargetCarriesGet(plain.target)",
                            "VELA::Systemd::UnitTypeGet(named.service)",
                            "VELASystemdTargetCarriesGet(named.service)",
                            "VELASystemdEnableStatusGetInGenerator(b.service)",
                            "VELASystemdEnableStatusGetInGenerator(c.service)"));
}

TEST_F(StayAliveLinks, FailuresButNoPolicyAreLoggedPassByPassAndAddNothing) {
    // The failing queries fill their lists before failing; what they hold is
    // dropped, so nothing reaches the writer. z.target has no policy at all.
    Script(R"({"belongs_to": {"x.target": {"fail": "0x702", "sets": ["y.target"]},
                              "a.service": {"fail": "0x701", "sets": ["x.target"]},
                              "y.target": {"fail": 1792, "sets": ["x.target"]}},
               "target_carries": {"x.target": {"fail": "0x702", "sets": ["a.service"]},
                                  "y.target": {"fail": "0x703"}},
               "enable_status": {"a.service": 1, "x.target": 1, "y.target": 1}})");
    AddStayAliveLinks(Dir(), {"x.target", "a.service", "y.target", "z.target"});
    EXPECT_THAT(LoggedLines(),
                ElementsAre(IsLogLine(TASK_FILE, "Fail to get StayAliveWhenIsolateToTargets in [x.target]."),
                            IsLogLine(TASK_FILE, "Fail to get StayAliveWhenIsolateToTargets in [a.service]."),
                            IsLogLine(TASK_FILE, "Fail to get StayAliveUnitsWhenIsolated in [x.target]."),
                            IsLogLine(TASK_FILE, "Fail to get StayAliveUnitsWhenIsolated in [y.target].")));
    for (const std::string& call : scripted::Calls()) {
        EXPECT_EQ(call.find("VELASystemdEnableStatusGetInGenerator"), std::string::npos) << call;
    }
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
}

}  // namespace
}  // namespace unit_test
