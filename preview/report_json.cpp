// The report as one JSON document, for scripts and CI: the same facts as
// the text, with paths and contents whole.
#include <json/json.h>

#include <memory>

#include "report.h"

namespace preview {

namespace {

const char* KindName(char kind) {
  switch (kind) {
    case 'd': return "directory";
    case 'f': return "file";
    case 'l': return "link";
    case 'w': case '-': return "absent";
    default: return "other";
  }
}

Json::Value ChangeValue(const Change& change) {
  Json::Value value;
  value["path"] = change.path;
  value["change"] = change.Removed() ? "removed" : change.Added() ? "added" : "changed";
  const Entry& shown = change.Removed() ? change.before : change.after;
  value["type"] = KindName(shown.kind);
  if (shown.kind == 'l') value["target"] = shown.text;
  if (shown.kind == 'f') value["content"] = shown.text;
  return value;
}

Json::Value ChangesValue(const std::vector<Change>& changes) {
  Json::Value list(Json::arrayValue);
  for (const Change& change : changes) list.append(ChangeValue(change));
  return list;
}

Json::Value StringsValue(const std::vector<std::string>& strings) {
  Json::Value list(Json::arrayValue);
  for (const std::string& text : strings) list.append(text);
  return list;
}

Json::Value OutcomeValue(const RunReport& run, int timeoutSeconds) {
  Json::Value value;
  value["ran"] = run.outcome.started;
  value["succeeded"] = run.outcome.Succeeded();
  value["description"] = run.failure.empty() ? DescribeOutcome(run.outcome, timeoutSeconds) : run.failure;
  if (run.outcome.started && !run.outcome.timedOut && run.outcome.signal == 0) value["exit_status"] = run.outcome.exitStatus;
  if (run.outcome.signal != 0) value["signal"] = run.outcome.signal;
  value["timed_out"] = run.outcome.timedOut;
  return value;
}

Json::Value RunValue(const RunReport& run, int timeoutSeconds) {
  Json::Value value;
  value["outcome"] = OutcomeValue(run, timeoutSeconds);
  value["masks"] = ChangesValue(run.masks);
  value["wants"] = Json::Value(Json::objectValue);
  for (const auto& [target, units] : run.wants) value["wants"][target] = StringsValue(units);
  value["drop_ins"] = ChangesValue(run.dropIns);
  value["enable_links"] = ChangesValue(run.enableLinks);
  value["change_marks"] = ChangesValue(run.changeMarks);
  value["run_once_flags"] = ChangesValue(run.flags);
  value["programs_run"] = StringsValue(run.programs);
  value["legacy_configuration_removed"] = ChangesValue(run.legacyRemoved);
  value["other_changes"] = ChangesValue(run.other);
  value["log"] = StringsValue(run.log);
  value["output"] = run.output;
  return value;
}

Json::Value AnswersValue(const UnitAnswers& answers) {
  Json::Value value(Json::objectValue);
  if (!answers.failure.empty()) value["failure"] = answers.failure;
  for (const auto& [name, answer] : answers.answers) {
    Json::Value item;
    item["ok"] = answer.ok;
    if (answer.ok) item["value"] = answer.value;
    else item["error"] = answer.error;
    value[name] = item;
  }
  return value;
}

Json::Value LiveValue(const Report& report) {
  Json::Value value;
  if (!report.liveFailure.empty()) value["failure"] = report.liveFailure;
  value["differences"] = Json::Value(Json::arrayValue);
  for (const LiveDifference& difference : report.live) {
    Json::Value item;
    item["change"] = difference.sign == '+' ? "add" : "remove";
    item["kind"] = difference.kind;
    item["path"] = difference.path;
    item["text"] = difference.text;
    value["differences"].append(item);
  }
  return value;
}

Json::Value VerifyValue(const Report& report) {
  const VerifyReport& verify = report.verify;
  Json::Value value;
  value["ran"] = verify.ran;
  if (!verify.failure.empty()) value["failure"] = verify.failure;
  value["generator"] = verify.generatorLine;
  value["units"] = StringsValue(verify.units);
  value["masked"] = StringsValue(verify.masked);
  value["warnings"] = StringsValue(verify.warnings);
  return value;
}

}  // namespace

void WriteJsonReport(const Report& report, JsonStyle style, std::ostream& out) {
  Json::Value root;
  root["target"] = report.target;
  root["generator"] = report.generator;
  root["boot"] = report.boot;
  root["runs"] = Json::Value(Json::arrayValue);
  for (const RunReport& run : report.runs) root["runs"].append(RunValue(run, report.timeoutSeconds));
  if (!report.unit.empty()) {
    root["unit"]["name"] = report.unit;
    root["unit"]["before"] = AnswersValue(report.before);
    root["unit"]["after"] = AnswersValue(report.after);
  }
  if (report.comparedLive) root["live_differences"] = LiveValue(report);
  if (report.verify.requested) root["verify"] = VerifyValue(report);
  root["strict_findings"] = StringsValue(StrictFindings(report));
  root["exit_status"] = ExitStatusOf(report);
  Json::StreamWriterBuilder builder;
  builder["indentation"] = style == JsonStyle::Short ? "" : "  ";
  std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
  writer->write(root, &out);
  out << "\n";
}

}  // namespace preview
