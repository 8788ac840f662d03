// The report for a person: one section per kind of output, as an
// administrator asks about them, each line tagged with what happened.
#include <iomanip>
#include <cstring>
#include <map>
#include <sstream>

#include "constants.h"
#include "report.h"

namespace preview {

namespace {

void Section(std::ostream& out, const std::string& title) { out << "\n  " << title << "\n"; }
void None(std::ostream& out) { out << "    (none)\n"; }

std::string Indented(const std::string& text, const std::string& indent) {
  std::istringstream lines(text);
  std::string line, shown;
  while (std::getline(lines, line)) shown += indent + line + "\n";
  return shown;
}

std::string Name(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// "+ PATH -> TARGET" for a link, "+ PATH" then its content for a file.
void ShowChange(std::ostream& out, const Change& change, const std::string& indent, bool content) {
  const Entry& shown = change.Removed() ? change.before : change.after;
  out << indent << (change.Removed() ? "- " : change.Added() ? "+ " : "~ ") << change.path;
  if (shown.kind == 'l') out << " -> " << shown.text;
  if (shown.kind == 'd') out << "/";
  out << "\n";
  if (content && shown.kind == 'f' && !change.Removed()) out << Indented(shown.text, indent + "    ");
}

void ShowChanges(std::ostream& out, const std::vector<Change>& changes, bool content) {
  if (changes.empty()) None(out);
  for (const Change& change : changes) ShowChange(out, change, "    ", content);
}

void ShowMasks(std::ostream& out, const RunReport& run) {
  Section(out, std::string("Masks (") + EARLY_DIR + ")");
  if (run.masks.empty()) None(out);
  for (const Change& mask : run.masks)
    out << "    " << std::left << std::setw(28) << Name(mask.path) << " -> " << mask.after.text << "\n";
}

void ShowWants(std::ostream& out, const RunReport& run) {
  Section(out, std::string("Wants links (") + NORMAL_DIR + ")");
  if (run.wants.empty()) None(out);
  for (const auto& [target, units] : run.wants) {
    out << "    " << std::left << std::setw(28) << target << " <-";
    for (const std::string& unit : units) out << " " << unit;
    out << "\n";
  }
}

void ShowEnableOperations(std::ostream& out, const RunReport& run) {
  Section(out, "Enable operations (unit library)");
  if (run.enableLinks.empty() && run.changeMarks.empty()) None(out);
  for (const Change& link : run.enableLinks) ShowChange(out, link, "    ", false);
  for (const Change& mark : run.changeMarks)
    out << "    " << (mark.Removed() ? "- " : "+ ") << "change mark " << mark.path << "\n";
}

void ShowList(std::ostream& out, const std::vector<std::string>& lines) {
  if (lines.empty()) out << "      (none)\n";
  for (const std::string& line : lines) out << "      " << line << "\n";
}

void ShowUpgradeEffects(std::ostream& out, const RunReport& run) {
  Section(out, "Upgrade-boot migration");
  if (run.flags.empty() && run.legacyRemoved.empty()) {
    out << "    nothing: no run-once flag made, no program run, no legacy configuration removed\n";
    return;
  }
  out << "    run-once flags:\n";
  for (const Change& flag : run.flags) ShowChange(out, flag, "      ", false);
  // A step that runs a program makes its flag first.
  out << "    programs run (by the steps whose flags were made):\n";
  ShowList(out, run.programs);
  out << "    legacy configuration removed:\n";
  std::vector<std::string> removed;
  for (const Change& change : run.legacyRemoved) removed.push_back("- " + change.path + "/");
  ShowList(out, removed);
}

void ShowLog(std::ostream& out, const RunReport& run) {
  Section(out, "Log lines (syslog)");
  if (run.log.empty()) None(out);
  for (const std::string& line : run.log) out << "    " << line << "\n";
  if (!run.output.empty()) {
    Section(out, "Output on stdout/stderr");
    out << Indented(run.output, "    ");
  }
}

bool IsGeneratorOutput(const Change& change) { return change.path.compare(0, std::strlen(NORMAL_DIR), NORMAL_DIR) == 0; }

// The generator's output of a second run against the first's.
void ShowOutputAgainst(std::ostream& out, const RunReport& run, const RunReport& previous) {
  std::map<std::string, Entry> before, now;
  for (const RunReport* source : {&previous, &run})
    for (const auto* kind : {&source->masks, &source->wantsLinks, &source->dropIns})
      for (const Change& change : *kind)
        if (IsGeneratorOutput(change)) (source == &run ? now : before)[change.path] = change.after;
  Section(out, "Generator output against the run before");
  size_t differences = 0;
  for (const auto& [path, entry] : before)
    if (!now.count(path) || !(now[path] == entry)) out << "    - " << path << "\n", ++differences;
  for (const auto& [path, entry] : now)
    if (!before.count(path) || !(before[path] == entry))
      out << "    + " << path << (entry.kind == 'l' ? " -> " + entry.text : "") << "\n", ++differences;
  if (differences == 0) out << "    the same " << now.size() << " masks, links and drop-ins, with the same content\n";
}

void ShowRun(std::ostream& out, const RunReport& run, const RunReport* previous, int timeoutSeconds) {
  out << "  " << (run.failure.empty() ? DescribeOutcome(run.outcome, timeoutSeconds) : run.failure) << "\n";
  if (previous != nullptr) {
    ShowOutputAgainst(out, run, *previous);
  } else {
    ShowMasks(out, run);
    ShowWants(out, run);
    Section(out, "Drop-ins");
    ShowChanges(out, run.dropIns, true);
  }
  ShowEnableOperations(out, run);
  ShowUpgradeEffects(out, run);
  Section(out, "Other changes anywhere");
  ShowChanges(out, run.other, true);
  ShowLog(out, run);
}

void ShowLive(std::ostream& out, const Report& report) {
  Section(out, "Against the live state: what a reload would add (+) or remove (-)");
  if (!report.liveFailure.empty()) out << "    " << report.liveFailure << "\n";
  else if (report.live.empty()) out << "    nothing: the live output and enable links are what the policy gives now\n";
  for (const LiveDifference& difference : report.live) {
    out << "    " << difference.sign << " " << std::left << std::setw(12) << difference.kind << difference.path;
    if (difference.kind != "drop-in" || difference.text.find('\n') == std::string::npos) {
      if (!difference.text.empty()) out << " -> " << difference.text;
      out << "\n";
    } else {
      out << "\n" << Indented(difference.text, "        ");
    }
  }
}

void ShowVerify(std::ostream& out, const Report& report) {
  const VerifyReport& verify = report.verify;
  Section(out, "As systemd loads it (systemd-analyze verify --generators=yes)");
  if (!verify.failure.empty()) out << "    " << verify.failure << "\n";
  if (!verify.ran) {
    if (verify.failure.empty()) out << "    nothing to load: the run named no unit\n";
    return;
  }
  out << "    " << (verify.generatorLine.empty() ? "generator not run" : verify.generatorLine) << "\n";
  out << "    units loaded: " << verify.units.size() << "; masked:";
  for (const std::string& unit : verify.masked) out << " " << unit;
  out << "\n    warnings: " << verify.warnings.size() << "\n";
  for (const std::string& warning : verify.warnings) out << "      " << warning << "\n";
}

}  // namespace

void WriteTextReport(const Report& report, std::ostream& out) {
  out << GENERATOR_NAME << " preview of " << report.target << " (" << report.boot << ")\n";
  out << "  generator " << report.generator << "\n";
  for (size_t i = 0; i < report.runs.size(); ++i) {
    if (report.runs.size() > 1) out << "\n--- " << (i == 0 ? "First run" : "Second run in the same boot (a reload)") << " ---\n";
    ShowRun(out, report.runs[i], i > 0 ? &report.runs[i - 1] : nullptr, report.timeoutSeconds);
  }
  if (!report.unit.empty()) WriteUnitAnswers(report, out);
  if (report.comparedLive) ShowLive(out, report);
  if (report.verify.requested) ShowVerify(out, report);
  if (report.strict) {
    std::vector<std::string> findings = StrictFindings(report);
    out << "\n  --strict: " << findings.size() << " finding(s)\n";
  }
}

}  // namespace preview
