// The order of a preview: what the library says before, the run (and the
// second run), what it says after, the live comparison, the loader.
#include "preview.h"

#include <iostream>

#include "classify.h"
#include "constants.h"
#include "generator_run.h"
#include "live_state.h"
#include "report.h"
#include "snapshot.h"
#include "unit_answers.h"
#include "verify.h"

namespace preview {

namespace {

// One run: what the layers hold before and after it is what it changed.
RunReport RunOnce(const Sandbox& sandbox, const Target& target, const Options& options) {
  Snapshot before = TakeSnapshot(sandbox.layers);
  RunReport run;
  RunGenerator(sandbox, target.generatorPath, options.timeoutSeconds, run);
  ClassifyChanges(CompareSnapshots(before, TakeSnapshot(sandbox.layers), sandbox.layers), run);
  return run;
}

std::string BootName(const Options& options) {
  if (options.changes) return "a reload of the running boot, against its live state";
  return options.upgrade ? "the first boot after an upgrade" : "an ordinary boot";
}

void Fail(const std::string& message) { std::cerr << PROGRAM_NAME << ": " << message << "\n"; }

}  // namespace

int RunPreview(const Options& options, const Target& target, const std::string& work) {
  Sandbox sandbox;
  std::string failure = BuildSandbox(options, target, work, sandbox);
  if (failure.empty() && options.upgrade) failure = MakeUpgradeMarkers(sandbox);
  if (!failure.empty()) {
    Fail(failure);
    return EXIT_CANNOT_RUN;
  }
  Report report;
  report.target = target.root;
  report.generator = target.hostGenerator.empty() ? target.generatorPath : target.hostGenerator + " (as " + target.generatorPath + ")";
  report.boot = BootName(options);
  report.unit = options.unit;
  report.strict = options.strict;
  report.timeoutSeconds = options.timeoutSeconds;
  if (!options.unit.empty()) report.before = AskAboutUnit(sandbox.root, options.unit);
  report.runs.push_back(RunOnce(sandbox, target, options));
  if (options.reload && report.runs[0].outcome.started) {
    failure = EmptyGeneratorDirs(sandbox);
    if (!failure.empty()) Fail(failure);
    else report.runs.push_back(RunOnce(sandbox, target, options));
  }
  if (!options.unit.empty()) report.after = AskAboutUnit(sandbox.root, options.unit);
  if (options.changes) {
    report.comparedLive = true;
    Listing listing = ListPlatformUnits(sandbox.root);
    report.liveFailure = listing.failure;
    if (listing.failure.empty())
      report.live = CompareWithLive(sandbox.liveRun, sandbox.root + "/run", listing, report.runs.back());
  }
  if (options.verify) {
    report.verify = VerifyWithLoader(sandbox, UnitsNamedBy(report.runs[0]), options.timeoutSeconds);
    report.verify.requested = true;
  }
  if (!options.unit.empty())
    for (RunReport& run : report.runs) NarrowToUnit(options.unit, run);
  if (options.json == JsonStyle::None) WriteTextReport(report, std::cout);
  else WriteJsonReport(report, options.json, std::cout);
  std::cout.flush();
  return ExitStatusOf(report);
}

}  // namespace preview
