// Service reason drop-ins: the shared drop-in is removed and written afresh,
// then linked into every listed service's drop-in directory, one child process
// per service, and the task waits for all of them.
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <map>
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

    // What each child of the task did (its calls, joined), one entry per
    // child: the children append to the same record.
    std::multiset<std::string> ChildCalls() const {
        std::map<int, std::string> byPid;
        for (const scripted::Call& call : scripted::RecordedCalls(RecordPath())) {
            if (call.pid != getpid()) {
                byPid[call.pid] += call.text;
            }
        }
        std::multiset<std::string> calls;
        for (const auto& [pid, text] : byPid) {
            calls.insert(text);
        }
        return calls;
    }
};

#define REQUIRE_PRIVATE_RUN()                                                     \
    if (!HasPrivateRun()) {                                                       \
        GTEST_SKIP() << "writing the reason drop-in needs a private /run here";  \
    }

TEST_F(ReasonDropIns, TheDropInIsRewrittenThenLinkedByOneChildPerListedService) {
    REQUIRE_PRIVATE_RUN();
    // The children take their time, so only a task that waits for them
    // returns with every link made.
    Script(R"({"services_with_reason": ["b.service", "a.service", "b.service"],
               "delay_ms": {"VELA::Systemd::LinkVelaReason": 150}})");
    AddReasonDropIns(Dir());

    EXPECT_THAT(scripted::Calls(), ElementsAre(LISTING, DROP_IN_WRITE, FORK, FORK, FORK));
    ASSERT_EQ(RunRemovals().size(), 1u);
    EXPECT_EQ(RunRemovals()[0].path, REASON_FILE);
    EXPECT_THAT(RunRemovals()[0].callsBefore, ElementsAre(LISTING));

    // Every link follows the complete drop-in, each from a child of its own.
    EXPECT_EQ(ChildCalls(), (std::multiset<std::string>{Link("a.service"), Link("b.service"), Link("b.service")}));

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
    Script(R"({"services_with_reason": ["a.service"], "add_unit_section": {")" + REASON_FILE +
           R"(": {"fail": "0x702", "file": "dropin.cpp", "line": 3}}})");
    AddReasonDropIns(Dir());
    EXPECT_THAT(scripted::Calls(), ElementsAre(LISTING, DROP_IN_WRITE));
    EXPECT_THAT(LoggedLines(), ElementsAre(IsLogLine(TASK_FILE, "Fail to create [" + REASON_FILE + "].")));
    ASSERT_EQ(RunRemovals().size(), 1u);
    EXPECT_EQ(RunRemovals()[0].path, REASON_FILE);
    EXPECT_THAT(RunRemovals()[0].callsBefore, ElementsAre(LISTING));
    EXPECT_THAT(ReadTree(Dir()), IsEmpty());
}

TEST_F(ReasonDropIns, AFailedForkIsSilentAndTheOtherServicesAreStillLinked) {
    REQUIRE_PRIVATE_RUN();
    Script(R"({"services_with_reason": ["a.service", "b.service", "c.service"],
               "fork": {"fail": "0x710", "calls": [2]}})");
    AddReasonDropIns(Dir());
    EXPECT_THAT(scripted::Calls(), ElementsAre(LISTING, DROP_IN_WRITE, FORK, FORK, FORK));
    EXPECT_EQ(ChildCalls(), (std::multiset<std::string>{Link("a.service"), Link("c.service")}));
    EXPECT_EQ(ReadTree(Dir()), Linked({"a.service", "c.service"}));
    EXPECT_THAT(LoggedLines(), IsEmpty());
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
