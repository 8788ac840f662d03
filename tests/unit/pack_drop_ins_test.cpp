// Pack drop-ins: a packed unit names its packing units in PartOf= and
// ReloadPropagatedFrom=, and each packing unit pulls it in.
#include <gmock/gmock.h>

#include "log_capture.h"
#include "scripted_platform.h"
#include "tasks.h"
#include "test_support.h"

namespace unit_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* TASK_FILE = "pack_drop_ins.cpp";
constexpr const char* WRITER_FILE = "wants_link_writer.cpp";

class PackDropIns : public ScriptedTest {
protected:
    // The record line of the drop-in write for `unit` with `packValue`.
    std::string DropInWrite(const std::string& unit, const std::string& packValue) const {
        return "VELA::Systemd::AddUnitSection(" + Dir() + "/" + unit + ".d/, vela-pack.conf, Unit, {PartOf=" +
               packValue + ", ReloadPropagatedFrom=" + packValue + "})";
    }
};

TEST_F(PackDropIns, EveryPackedUnitGetsItsDropInAndOneLinkPerPackingUnitAndAnUnpackedOneNothing) {
    Script(R"({"packed_in": {"a.service": ["y.target", "x.target", "y.target"], "b.service": [],
                             "c.service": ["x.target"]},
               "enable_status": {"a.service": 1, "b.service": 1, "c.service": 1}})");
    AddPackDropIns(Dir(), {"a.service", "b.service", "c.service"});
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdPackedInGet(a.service)", DropInWrite("a.service", "x.target y.target"),
                            "VELASystemdEnableStatusGetInGenerator(a.service)",
                            "VELA::Systemd::UnitPathGet(a.service)", "VELA::Systemd::UnitPathGet(a.service)",
                            "VELASystemdPackedInGet(b.service)", "VELASystemdPackedInGet(c.service)",
                            DropInWrite("c.service", "x.target"), "VELASystemdEnableStatusGetInGenerator(c.service)",
                            "VELA::Systemd::UnitPathGet(c.service)"));
    EXPECT_EQ(ReadTree(Dir()),
              (FileTree{{"a.service.d", "dir"},
                        {"a.service.d/vela-pack.conf",
                         "file: [Unit]\nPartOf=x.target y.target\nReloadPropagatedFrom=x.target y.target\n"},
                        {"c.service.d", "dir"},
                        {"c.service.d/vela-pack.conf",
                         "file: [Unit]\nPartOf=x.target\nReloadPropagatedFrom=x.target\n"},
                        {"x.target.wants", "dir"},
                        {"x.target.wants/a.service", "-> /usr/lib/systemd/system/a.service"},
                        {"x.target.wants/c.service", "-> /usr/lib/systemd/system/c.service"},
                        {"y.target.wants", "dir"},
                        {"y.target.wants/a.service", "-> /usr/lib/systemd/system/a.service"}}));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

TEST_F(PackDropIns, ThePackValueHoldsDistinctNamesInByteOrder) {
    const struct {
        const char* packs;
        const char* value;
    } cases[] = {
        {R"(["x.target", "x.target"])", "x.target"},
        {R"(["a.target", "Z.target"])", "Z.target a.target"},
        {R"(["a.target2", "a.target"])", "a.target a.target2"},
        {R"(["c.target", "a.service", "b.target", "a.service"])", "a.service b.target c.target"},
    };
    for (const auto& c : cases) {
        Script(std::string(R"({"packed_in": {"a.service": )") + c.packs + "}}");
        AddPackDropIns(Dir(), {"a.service"});
        EXPECT_THAT(scripted::Calls(),
                    ElementsAre("VELASystemdPackedInGet(a.service)", DropInWrite("a.service", c.value),
                                "VELASystemdEnableStatusGetInGenerator(a.service)"))
            << c.packs;
    }
}

TEST_F(PackDropIns, AFailedDropInWriteIsSilentAndTheLinksAreStillMade) {
    Script(R"({"packed_in": {"a.service": ["x.target"]}, "enable_status": {"a.service": 1},
               "add_unit_section": {")" +
           Dir() + R"(/a.service.d/vela-pack.conf": {"fail": "0x702"}}})");
    AddPackDropIns(Dir(), {"a.service"});
    EXPECT_THAT(scripted::Calls(),
                ElementsAre("VELASystemdPackedInGet(a.service)", DropInWrite("a.service", "x.target"),
                            "VELASystemdEnableStatusGetInGenerator(a.service)",
                            "VELA::Systemd::UnitPathGet(a.service)"));
    EXPECT_EQ(ReadTree(Dir()), (FileTree{{"x.target.wants", "dir"},
                                         {"x.target.wants/a.service", "-> /usr/lib/systemd/system/a.service"}}));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

TEST_F(PackDropIns, AFailedPackingQueryGivesNoDropInAndNoLinkWhateverItFilledIn) {
    Script(R"({"packed_in": {"a.service": {"fail": 1792, "sets": ["x.target"]},
                             "b.service": {"fail": "0x702", "sets": ["x.target"]}},
               "enable_status": {"a.service": 1, "b.service": 1}})");
    AddPackDropIns(Dir(), {"a.service", "b.service"});
    EXPECT_THAT(scripted::Calls(), ElementsAre("VELASystemdPackedInGet(a.service)", "VLIBCErrGet()",
                                               "VELASystemdPackedInGet(b.service)", "VLIBCErrGet()"));
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to get VELASystemdPackedInGet in [b.service].")));
}

TEST_F(PackDropIns, AUnitListedTwiceIsHandledTwice) {
    Script(R"({"packed_in": {"a.service": ["x.target"]}, "enable_status": {"a.service": 1}})");
    AddPackDropIns(Dir(), {"a.service", "a.service"});
    EXPECT_THAT(scripted::Calls(), testing::Contains(DropInWrite("a.service", "x.target")).Times(2));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(WRITER_FILE, "Fail to create link from [" + Dir() +
                                                                      "/x.target.wants/] to "
                                                                      "[/usr/lib/systemd/system/a.service] "
                                                                      "(File exists).")));
}

}  // namespace
}  // namespace unit_test
