// vela-system-generator: applies the platform's unit policy at every boot and
// every reload of the service manager. The run: check the call, migrate the old
// service configuration on an upgrade boot, list the units, run the five tasks
// side by side in child processes, and wait for all of them.
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "log.h"
#include "platform_errors.h"
#include "process.h"
#include "tasks.h"
#include "unit_library.h"
#include "upgrade_boot.h"

namespace {

using GeneratorTask = std::function<void()>;

// The program name and the three generator directories.
constexpr int EXPECTED_ARGC = 4;

constexpr size_t TASK_COUNT = 5;

// The selector that lists every unit.
const std::string ALL_UNITS = "";

// Writes one line of the usage text and flushes it at once.
void PrintUsageLine(const std::string& line) {
    std::fputs(line.c_str(), stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

void PrintUsage(const char* programName) {
    // Without an argv[0] the installed name is the most useful thing to show.
    const std::string name = programName ? programName : "vela-system-generator";
    PrintUsageLine("Velora system generator.");
    PrintUsageLine("");
    PrintUsageLine("usage:");
    PrintUsageLine("    " + name + " normal-dir early-dir late-dir");
    PrintUsageLine("");
    PrintUsageLine("see systemd.generator(7) for detailed usage.");
}

// The reason task asks the platform for its own list of services and forks one
// child per service. Its process lets go of the unit list first: every page it
// holds is one more that each of those forks copies and each exit tears down.
void RunReasonTask(const std::string& earlyDir, UnitList& units) {
    UnitList().swap(units);
    AddReasonDropIns(earlyDir);
}

// The tasks in the order they are started. They share the one unit list by
// reference: `units` lives in main until every child has been reaped, and each
// child sees it copy-on-write, so no fork copies a list of its own.
std::vector<GeneratorTask> BuildTaskList(const std::string& normalDir, const std::string& earlyDir,
                                         UnitList& units) {
    std::vector<GeneratorTask> tasks;
    tasks.reserve(TASK_COUNT);
    tasks.emplace_back(std::bind(RunReasonTask, std::cref(earlyDir), std::ref(units)));
    tasks.emplace_back(std::bind(MaskUnsupportedUnits, std::cref(earlyDir), std::cref(units)));
    tasks.emplace_back(std::bind(AddStayAliveLinks, std::cref(normalDir), std::cref(units)));
    tasks.emplace_back(std::bind(AddPackDropIns, std::cref(normalDir), std::cref(units)));
    tasks.emplace_back(std::bind(EnableDefaultUnits, std::cref(units)));
    return tasks;
}

// Starts every task in a child of its own without waiting in between. A task
// whose child cannot be made is not run at all this time.
void StartTasks(const std::vector<GeneratorTask>& tasks) {
    for (const GeneratorTask& task : tasks) {
        if (RunInChild(task) < 0) {
            const ErrorState error = ReadErrorState();
            VLOG("Fail to fork.[0x%04X %s:%d]", error.code, error.file, error.line);
        }
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != EXPECTED_ARGC) {
        PrintUsage(argc > 0 ? argv[0] : nullptr);
        return 1;
    }
    const std::string normalDir = argv[1];
    const std::string earlyDir = argv[2];
    // The late directory is part of the protocol but nothing here belongs there.
    const std::string lateDir = argv[3];

    // Before the listing, so that the tasks see the enable states it sets.
    if (IsUpgradeBoot()) {
        RunUpgradeBootMigration();
    }

    UnitList units;
    if (!VELASystemdListUnits(units, ALL_UNITS)) {
        const ErrorState error = ReadErrorState();
        VLOG("Fail to list units.[0x%04X %s:%d]", error.code, error.file, error.line);
        return 1;
    }

    StartTasks(BuildTaskList(normalDir, earlyDir, units));
    ReapChildren();
    return 0;
}
