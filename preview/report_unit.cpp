// Why a unit fared as it did: each of the library's answers about it, before
// and after the run, and the output of the run that follows from it.
#include <iomanip>
#include <sstream>

#include "constants.h"
#include "report.h"

namespace preview {

namespace {

std::string Name(const std::string& path) { return path.substr(path.rfind('/') + 1); }
std::string DirName(const std::string& path) { return Name(path.substr(0, path.rfind('/'))); }

std::string Hex(int code) {
  std::ostringstream hex;
  hex << "0x" << std::uppercase << std::hex << std::setw(4) << std::setfill('0') << code;
  return hex.str();
}

std::string Shown(const Answer& answer) {
  if (!answer.ok) return "failed, error " + Hex(answer.error);
  return answer.value.empty() ? "(none)" : answer.value;
}

// The targets among `names` whose .wants/ the run linked the unit into.
std::string LinkedInto(const std::string& names, const RunReport& run, const std::string& unit) {
  std::string targets;
  for (const Change& link : run.wantsLinks) {
    std::string target = DirName(link.path).substr(0, DirName(link.path).size() - 6);
    if (Name(link.path) == unit && (" " + names + " ").find(" " + target + " ") != std::string::npos)
      targets += " " + target;
  }
  return targets.empty() ? "" : "linked into the .wants/ of" + targets;
}

bool HasDropIn(const RunReport& run, const std::string& name) {
  for (const Change& dropIn : run.dropIns)
    if (Name(dropIn.path) == name && !dropIn.Removed()) return true;
  return false;
}

std::string EnableOutput(const RunReport& run) {
  size_t made = 0, removed = 0;
  for (const Change& link : run.enableLinks) (link.Removed() ? removed : made)++;
  if (made + removed == 0) return "no enable operation";
  return std::to_string(made) + " enable link(s) made, " + std::to_string(removed) + " removed";
}

// The output of `run` that answer `name` (with `value`) leads to.
std::string LedTo(const std::string& name, const std::string& value, const RunReport& run, const std::string& unit) {
  if (name == "supported") return run.masks.empty() ? "not masked" : "masked to " + std::string(MASK_TARGET);
  if (name == "enable status") return EnableOutput(run);
  if (name == "status changed")
    return run.changeMarks.empty() ? "" : std::string(run.changeMarks[0].Removed() ? "change mark removed" : "change mark written");
  if (name == "packed in" && !value.empty()) {
    std::string links = LinkedInto(value, run, unit);
    return std::string(HasDropIn(run, PACK_CONF_NAME) ? PACK_CONF_NAME : "no pack drop-in") + (links.empty() ? "" : "; " + links);
  }
  if (name == "stays alive when isolating to" && !value.empty()) return LinkedInto(value, run, unit);
  if (name == "reason check" && value == "yes") return HasDropIn(run, REASON_CONF_NAME) ? "reason drop-in linked" : "no reason drop-in";
  return "";
}

}  // namespace

void WriteUnitAnswers(const Report& report, std::ostream& out) {
  out << "\n  The platform library's answers for " << report.unit << " (before the run -> after) => what the run did\n";
  if (!report.before.failure.empty()) {
    out << "    " << report.before.failure << "\n";
    return;
  }
  for (size_t i = 0; i < report.before.answers.size(); ++i) {
    const auto& [name, before] = report.before.answers[i];
    std::string shown = Shown(before);
    if (i < report.after.answers.size() && Shown(report.after.answers[i].second) != shown)
      shown += " -> " + Shown(report.after.answers[i].second);
    std::string outcome = report.runs.empty() || !before.ok ? "" : LedTo(name, before.value, report.runs[0], report.unit);
    out << "    " << std::left << std::setw(31) << name << " " << shown << (outcome.empty() ? "" : "  => " + outcome) << "\n";
  }
}

}  // namespace preview
