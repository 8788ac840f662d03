// The driver lists the units once, forks one child per task in task order,
// and exits only when every child (and every grandchild) has ended.
#include <algorithm>
#include <string>
#include <vector>

#include "generator_sandbox.h"

namespace e2e {
namespace {

using sandbox::Dir;
using sandbox::File;
using sandbox::Link;
using sandbox::Sandbox;

// The first platform call of each task, in task order, for a unit list that
// starts with a.service.
const std::vector<std::string>& TaskSignatures() {
    static const std::vector<std::string> signatures = {
        "VELA::Systemd::ListServicesWithReason()",     // reason drop-ins
        "VELASystemdIsSupportGet(a.service)",          // masking
        "VELASystemdBelongsToGet(a.service)",          // stay-alive links
        "VELASystemdPackedInGet(a.service)",           // pack drop-ins
        "VELASystemdIsDefaultEnableGet(a.service)",    // default enablement
    };
    return signatures;
}

std::vector<std::string> Repeated(const std::string& text, size_t times) {
    return std::vector<std::string>(times, text);
}

std::vector<std::string> Concat(std::vector<std::string> head, const std::vector<std::string>& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

using DriverFanOut = GeneratorEndToEnd;

TEST_F(DriverFanOut, ForksFiveChildrenInTaskOrder) {
    // No service with a reason: no grandchild, so the record holds the parent
    // and its five children only.
    WriteScript(R"({"units": ["a.service", "x.target"]})");
    GeneratorRun run = RunWithGeneratorDirs();
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_TRUE(run.result.log.empty());

    std::vector<int> pids = run.Pids();
    ASSERT_EQ(pids.size(), 6u);
    const int parent = pids[0];
    EXPECT_EQ(run.CallsOf(parent), Concat({LIST_UNITS}, Repeated(FORK, 5)));

    // A fresh pid namespace hands out increasing pids: their order is the fork order.
    std::vector<int> children(pids.begin() + 1, pids.end());
    std::sort(children.begin(), children.end());
    for (size_t task = 0; task < children.size(); ++task) {
        std::vector<std::string> calls = run.CallsOf(children[task]);
        SCOPED_TRACE("child " + std::to_string(task + 1));
        EXPECT_EQ(calls.front(), TaskSignatures()[task]);
        // A child that came back into the driver's loop would fork or list again.
        EXPECT_EQ(std::count(calls.begin(), calls.end(), FORK), 0);
        EXPECT_EQ(std::count(calls.begin(), calls.end(), LIST_UNITS), 0);
    }
}

TEST_F(DriverFanOut, EmptyUnitListStillForksFiveChildren) {
    WriteScript(R"({"units": [], "services_with_reason": []})");
    GeneratorRun run = RunWithGeneratorDirs();
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_TRUE(run.result.log.empty());
    std::vector<int> pids = run.Pids();
    ASSERT_EQ(pids.size(), 2u) << "only the reason task calls the platform without units";
    EXPECT_EQ(run.CallsOf(pids[0]), Concat({LIST_UNITS}, Repeated(FORK, 5)));
    EXPECT_EQ(run.CallsOf(pids[1]).front(), TaskSignatures()[0]);
    EXPECT_EQ(sandbox::DiffTrees({{"reason-conf", Dir()}, {"reason-conf/vela-reason.conf", File(REASON_CONTENT)}},
                                 box_.Snapshot("/run/velasystemd")),
              "");
    EXPECT_TRUE(box_.Snapshot(Sandbox::NORMAL_DIR).empty());
    EXPECT_TRUE(box_.Snapshot(Sandbox::EARLY_DIR).empty());
}

TEST_F(DriverFanOut, ReapsEveryChildBeforeExiting) {
    // Every task's (and the reason grandchild's) effect is held up; all of it
    // must be there when the run returns, or the driver left before its children.
    WriteScript(R"({
        "units": ["a.service", "b.service"],
        "support": {"a.service": false, "b.service": true},
        "packed_in": {"b.service": ["x.target"]},
        "enable_status": {"b.service": 1},
        "services_with_reason": ["c.service"],
        "delay_ms": {"VELASystemdIsSupportGet": 300, "VELA::Systemd::LinkVelaReason": 300,
                     "VELA::Systemd::AddUnitSection": 300, "VELASystemdEnableStatusGetInGenerator": 300}
    })");
    GeneratorRun run = RunWithGeneratorDirs();
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_TRUE(run.result.log.empty());
    EXPECT_EQ(sandbox::DiffTrees({{"a.service", Link("/dev/null")},
                                  {"c.service.d", Dir()},
                                  {"c.service.d/vela-reason.conf", Link(REASON_DROP_IN)}},
                                 box_.Snapshot(Sandbox::EARLY_DIR)),
              "");
    EXPECT_EQ(sandbox::DiffTrees({{"b.service.d", Dir()},
                                  {"b.service.d/vela-pack.conf", File("[Unit]\nPartOf=x.target\nReloadPropagatedFrom=x.target\n")},
                                  {"x.target.wants", Dir()},
                                  {"x.target.wants/b.service", Link("/usr/lib/systemd/system/b.service")}},
                                 box_.Snapshot(Sandbox::NORMAL_DIR)),
              "");
    EXPECT_EQ(run.Pids().size(), 7u) << "parent, five children and one grandchild";
}

}  // namespace
}  // namespace e2e
