// Service reason drop-ins: the shared drop-in is removed and written afresh,
// then linked into every listed service's drop-in directory, one child process
// per service, and the task waits for all of them.
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <set>

#include "log_capture.h"
#include "private_run.h"
#include "scripted_platform.h"
#include "tasks.h"
#include "test_support.h"

namespace unit_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* TASK_FILE = "reason_drop_ins.cpp";

const std::string REASON_FILE = "/run/velasystemd/reason-conf/vela-reason.conf";
const std::string LISTING = "VELA::Systemd::ListServicesWithReason()";
const std::string DROP_IN_WRITE =
    "VELA::Systemd::AddUnitSection(/run/velasystemd/reason-conf/, vela-reason.conf, Service, "
    "{ExecStartPre=/usr/vela/bin/velasystemctl check-service-reason %n})";
const std::string FORK = "VLIBCProcForkEx(187)";

class ReasonDropIns : public ScriptedTest {
protected:
    ReasonDropIns() {
        ClearRunRemovals();
        if (HasPrivateRun()) {
            std::filesystem::remove_all("/run/velasystemd");
        }
    }

    std::string Link(const std::string& service) const {
        return "VELA::Systemd::LinkVelaReason(" + Dir() + "/" + service + ".d/, " + REASON_FILE + ")";
    }

    FileTree Linked(const std::set<std::string>& services) const {
        FileTree tree;
        for (const std::string& service : services) {
            tree[service + ".d"] = "dir";
            tree[service + ".d/vela-reason.conf"] = "-> " + REASON_FILE;
        }
        return tree;
    }

    // The calls of the task's children, which append to the same record.
    std::vector<scripted::Call> ChildCalls() const {
        std::vector<scripted::Call> calls;
        for (const scripted::Call& call : scripted::RecordedCalls(RecordPath())) {
            if (call.pid != getpid()) {
                calls.push_back(call);
            }
        }
        return calls;
    }

    static std::vector<std::string> Texts(const std::vector<scripted::Call>& calls) {
        std::vector<std::string> texts;
        for (const scripted::Call& call : calls) {
            texts.push_back(call.text);
        }
        return texts;
    }
};

#define REQUIRE_PRIVATE_RUN()                                                     \
    if (!HasPrivateRun()) {                                                       \
        GTEST_SKIP() << "writing the reason drop-in needs a private /run here";  \
    }

TEST_F(ReasonDropIns, TheDropInIsRewrittenThenLinkedByOneChildPerService) {
    REQUIRE_PRIVATE_RUN();
    // The children take their time, so only a task that waits for them
    // returns with both links made.
    Script(R"({"services_with_reason": ["b.service", "a.service"],
               "delay_ms": {"VELA::Systemd::LinkVelaReason": 150}})");
    AddReasonDropIns(Dir());

    EXPECT_THAT(scripted::Calls(), ElementsAre(LISTING, DROP_IN_WRITE, FORK, FORK));
    ASSERT_EQ(RunRemovals().size(), 1u);
    EXPECT_EQ(RunRemovals()[0].path, REASON_FILE);
    EXPECT_THAT(RunRemovals()[0].callsBefore, ElementsAre(LISTING));

    // Every link follows the complete drop-in, each from a child of its own.
    const std::vector<scripted::Call> all = scripted::RecordedCalls(RecordPath());
    ASSERT_EQ(all.size(), 6u);
    EXPECT_EQ(all[1].text, DROP_IN_WRITE);
    const std::vector<scripted::Call> children = ChildCalls();
    EXPECT_THAT(Texts(children), UnorderedElementsAre(Link("a.service"), Link("b.service")));
    ASSERT_EQ(children.size(), 2u);
    EXPECT_NE(children[0].pid, children[1].pid);

    // No child is left unreaped.
    errno = 0;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(ReadTree(Dir()), Linked({"a.service", "b.service"}));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

TEST_F(ReasonDropIns, AFailedListingIsLoggedAndNothingIsRemovedOrWritten) {
    Script(R"({"services_with_reason": {"fail": 31, "file": "units.cpp", "line": 88, "sets": ["a.service"]}})");
    AddReasonDropIns(Dir());
    EXPECT_THAT(scripted::Calls(),
                ElementsAre(LISTING, "VLIBCErrorGetLine()", "VLIBCErrorGetFile()", "VLIBCErrGet()"));
    EXPECT_THAT(LoggedLines(),
                ElementsAre(IsLogLine(TASK_FILE, "Fail to list service units.[0x001F units.cpp:88]")));
    EXPECT_TRUE(RunRemovals().empty());
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
}

TEST_F(ReasonDropIns, ADropInThatCannotBeWrittenIsLoggedAndNothingIsForked) {
    for (const char* refusal : {"false", R"({"fail": "0x702", "file": "dropin.cpp", "line": 3})"}) {
        Script(R"({"services_with_reason": ["a.service"], "add_unit_section": {")" + REASON_FILE + R"(": )" +
               refusal + "}}");
        ClearRunRemovals();
        AddReasonDropIns(Dir());
        EXPECT_THAT(scripted::Calls(), ElementsAre(LISTING, DROP_IN_WRITE)) << refusal;
        EXPECT_THAT(LoggedLines(),
                    ElementsAre(IsLogLine(TASK_FILE, "Fail to create [" + REASON_FILE + "].")))
            << refusal;
        ASSERT_EQ(RunRemovals().size(), 1u) << refusal;
        EXPECT_EQ(RunRemovals()[0].path, REASON_FILE);
        EXPECT_THAT(RunRemovals()[0].callsBefore, ElementsAre(LISTING)) << refusal;
        EXPECT_THAT(ReadTree(Dir()), IsEmpty()) << refusal;
    }
}

TEST_F(ReasonDropIns, AFailedForkIsSilentAndTheOtherServicesAreStillLinked) {
    REQUIRE_PRIVATE_RUN();
    Script(R"({"services_with_reason": ["a.service", "b.service", "c.service"],
               "fork": {"fail": "0x710", "calls": [2]}})");
    AddReasonDropIns(Dir());
    EXPECT_THAT(scripted::Calls(), ElementsAre(LISTING, DROP_IN_WRITE, FORK, FORK, FORK));
    EXPECT_THAT(Texts(ChildCalls()), UnorderedElementsAre(Link("a.service"), Link("c.service")));
    EXPECT_EQ(ReadTree(Dir()), Linked({"a.service", "c.service"}));
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

TEST_F(ReasonDropIns, AServiceListedTwiceGetsTwoChildren) {
    REQUIRE_PRIVATE_RUN();
    Script(R"({"services_with_reason": ["a.service", "a.service"]})");
    AddReasonDropIns(Dir());
    EXPECT_THAT(scripted::Calls(), ElementsAre(LISTING, DROP_IN_WRITE, FORK, FORK));
    const std::vector<scripted::Call> children = ChildCalls();
    EXPECT_THAT(Texts(children), ElementsAre(Link("a.service"), Link("a.service")));
    ASSERT_EQ(children.size(), 2u);
    EXPECT_NE(children[0].pid, children[1].pid);
    EXPECT_EQ(ReadTree(Dir()), Linked({"a.service"}));
}

TEST_F(ReasonDropIns, AnEmptyServiceListStillRewritesTheDropIn) {
    REQUIRE_PRIVATE_RUN();
    Script(R"({"services_with_reason": []})");
    AddReasonDropIns(Dir());
    EXPECT_THAT(scripted::Calls(), ElementsAre(LISTING, DROP_IN_WRITE));
    ASSERT_EQ(RunRemovals().size(), 1u);
    EXPECT_EQ(RunRemovals()[0].path, REASON_FILE);
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
    EXPECT_THAT(LoggedLines(), IsEmpty());
}

}  // namespace
}  // namespace unit_test
