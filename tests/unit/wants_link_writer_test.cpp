// The wants-link writer: DIR/T.wants/U -> U's unit file, for enabled and
// static units only, never replacing what is there.
#include <gmock/gmock.h>

#include "log_capture.h"
#include "scripted_platform.h"
#include "tasks.h"
#include "test_support.h"
#include "unit_library.h"

namespace unit_test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char* WRITER_FILE = "wants_link_writer.cpp";

const std::string A_PATH = "/usr/lib/systemd/system/a.service";

class WantsLinkWriter : public ScriptedTest {};

TEST_F(WantsLinkWriter, EnableStatusDecidesWhetherAUnitIsLinked) {
    const FileTree linked = {{"x.target.wants", "dir"},
                             {"x.target.wants/a.service", "-> " + A_PATH},
                             {"y.target.wants", "dir"},
                             {"y.target.wants/a.service", "-> " + A_PATH}};
    const std::vector<std::string> asked = {"VELASystemdEnableStatusGetInGenerator(a.service)",
                                            "VELA::Systemd::UnitPathGet(a.service)",
                                            "VELA::Systemd::UnitPathGet(a.service)"};
    const std::vector<std::string> statusOnly = {"VELASystemdEnableStatusGetInGenerator(a.service)"};
    struct {
        int status;
        FileTree tree;
        std::vector<std::string> calls;
        const char* message;  // nullptr: nothing logged
    } cases[] = {
        {-1, {}, statusOnly, "Fail to get [a.service] enable status."},
        {0, {}, statusOnly, nullptr},
        {1, linked, asked, nullptr},
        {2, linked, asked, nullptr},
        {3, {}, statusOnly, nullptr},
        {7, {}, statusOnly, nullptr},
    };
    for (const auto& c : cases) {
        const std::string dir = Dir() + "/status" + std::to_string(c.status);
        MakeDirectory(dir);
        Script(R"({"enable_status": {"a.service": )" + std::to_string(c.status) + "}}");
        CreateWantsLink(dir, {{"a.service", {"y.target", "x.target"}}});
        EXPECT_EQ(ReadTree(dir), c.tree) << "status " << c.status;
        EXPECT_THAT(scripted::Calls(), ElementsAreArray(c.calls)) << "status " << c.status;
        if (c.message) {
            EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(WRITER_FILE, c.message))) << "status " << c.status;
        } else {
            EXPECT_THAT(LoggedLines(), IsEmpty()) << "status " << c.status;
        }
    }
}

TEST_F(WantsLinkWriter, AFailureSkipsOnlyItsUnitOrTargetAndLinksPointWhereTheLibrarySays) {
    // a: status unreadable, logged. b: no unit file, silent, both targets
    // tried. c: an instance linked to the template file the library names.
    Script(R"({"enable_status": {"a.service": -1, "b.service": 1, "c@x.service": 1},
               "path": {"b.service": {"throw": "no unit file"}, "c@x.service": "/etc/systemd/system/c@.service"}})");
    CreateWantsLink(Dir(), {{"a.service", {"x.target"}}, {"b.service", {"x.target", "y.target"}},
                            {"c@x.service", {"x.target"}}});
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdEnableStatusGetInGenerator(a.service)",
                            "VELASystemdEnableStatusGetInGenerator(b.service)", "VELA::Systemd::UnitPathGet(b.service)",
                            "VELA::Systemd::UnitPathGet(b.service)",
                            "VELASystemdEnableStatusGetInGenerator(c@x.service)",
                            "VELA::Systemd::UnitPathGet(c@x.service)"));
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"x.target.wants", "dir"},
                                         {"x.target.wants/c@x.service", "-> /etc/systemd/system/c@.service"}}));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(WRITER_FILE, "Fail to get [a.service] enable status.")));
}

TEST_F(WantsLinkWriter, AWantsDirectoryThatCannotBeMadeIsLoggedWithTheErrorStateAsItStands) {
    Script(R"({"support": {"earlier.service": {"fail": 31, "file": "state.cpp", "line": 7}},
               "enable_status": {"a.service": 1}})");
    bool supported = true;
    ASSERT_FALSE(VELASystemdIsSupportGet("earlier.service", supported));
    const std::string missing = Dir() + "/missing";
    CreateWantsLink(missing, {{"a.service", {"x.target", "y.target"}}});
    EXPECT_THAT(LoggedLines(),
                ElementsAre(IsLogLine(WRITER_FILE, "Fail to create [" + missing + "/x.target.wants/] [0x001F state.cpp:7]"),
                            IsLogLine(WRITER_FILE, "Fail to create [" + missing + "/y.target.wants/] [0x001F state.cpp:7]")));
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdIsSupportGet(earlier.service)",
                            "VELASystemdEnableStatusGetInGenerator(a.service)", "VELA::Systemd::UnitPathGet(a.service)",
                            "VLIBCErrorGetLine()", "VLIBCErrorGetFile()", "VLIBCErrGet()",
                            "VELA::Systemd::UnitPathGet(a.service)", "VLIBCErrorGetLine()", "VLIBCErrorGetFile()",
                            "VLIBCErrGet()"));
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
}

TEST_F(WantsLinkWriter, AnExistingLinkIsKeptAndEveryAttemptLoggedInByteOrderOfUnitsAndTargets) {
    // Every link is there already, so each attempt leaves a line naming its
    // target's directory and its unit's path, in the order of the attempts.
    const std::vector<std::pair<std::string, std::string>> attempts = {
        {"x.target", "Z.service"},  {"B.target", "a.service"}, {"a.target", "a.service"},
        {"a.target2", "a.service"}, {"b.target", "a.service"}, {"x.target", "\xC3\xA9.service"}};
    FileTree before;
    for (const auto& [target, unit] : attempts) {
        if (!Exists(Dir() + "/" + target + ".wants")) {
            MakeDirectory(Dir() + "/" + target + ".wants");
            before[target + ".wants"] = "dir";
        }
        MakeLink("/elsewhere", Dir() + "/" + target + ".wants/" + unit);
        before[target + ".wants/" + unit] = "-> /elsewhere";
    }
    Script(R"({"enable_status": {"Z.service": 1, "a.service": 1, "\u00e9.service": 1}})");
    CreateWantsLink(Dir(), {{"\xC3\xA9.service", {"x.target"}},
                            {"a.service", {"b.target", "a.target2", "B.target", "a.target"}},
                            {"Z.service", {"x.target"}}});
    std::vector<testing::Matcher<const LogLine&>> expected;
    for (const auto& [target, unit] : attempts) {
        expected.push_back(IsLogLine(WRITER_FILE, "Fail to create link from [" + Dir() + "/" + target +
                                                      ".wants/] to [/usr/lib/systemd/system/" + unit +
                                                      "] (File exists)."));
    }
    EXPECT_THAT(LoggedLines(), ElementsAreArray(expected));
    EXPECT_EQ(ReadTree(Dir()), before);
}

}  // namespace
}  // namespace unit_test
