// Loading the target's libvelasystemd.so.7 and libvelacore.so.7 in a child
// that has entered the target's root, and asking them. The answers travel
// back as JSON.
#include "unit_answers.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <json/json.h>
#include <functional>
#include <memory>
#include <stdexcept>

#include "process.h"
#include "unit_library.h"

namespace preview {

namespace {

constexpr const char* UNIT_LIBRARY = "libvelasystemd.so.7";
constexpr const char* CORE_LIBRARY = "libvelacore.so.7";
constexpr const char* ENABLE_STATUS_NAMES[] = {"disabled", "enabled", "static", "masked"};

// The unit library's functions have C++ linkage: their symbols are the
// names the compiler gives the declarations of unit_library.h.
struct UnitLibrary {
  decltype(&VELASystemdListUnits) listUnits;
  decltype(&VELASystemdIsSupportGet) isSupport;
  decltype(&VELASystemdIsDefaultEnableGet) isDefaultEnable;
  decltype(&VELASystemdPackedInGet) packedIn;
  decltype(&VELASystemdBelongsToGet) belongsTo;
  decltype(&VELASystemdTargetCarriesGet) targetCarries;
  decltype(&VELASystemdEnableStatusGetInGenerator) enableStatus;
  decltype(&VELA::Systemd::IsEnableStatusChanged) isChanged;
  decltype(&VELA::Systemd::UnitPathGet) unitPath;
  decltype(&VELA::Systemd::ListServicesWithReason) listWithReason;
  int (*errorCode)();
};

template <typename Function>
bool Bind(void* library, const char* symbol, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, symbol));
  return function != nullptr;
}

// Loads both libraries as the target's loader finds them; "" or why not.
std::string LoadLibrary(UnitLibrary& lib) {
  void* core = dlopen(CORE_LIBRARY, RTLD_NOW | RTLD_GLOBAL);
  void* units = core ? dlopen(UNIT_LIBRARY, RTLD_NOW) : nullptr;
  if (units == nullptr) return std::string("cannot load the platform library: ") + dlerror();
  bool bound =
      Bind(units, "_Z20VELASystemdListUnitsRSt6vectorINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESaIS5_EERKS5_", lib.listUnits) &&
      Bind(units, "_Z23VELASystemdIsSupportGetRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERb", lib.isSupport) &&
      Bind(units, "_Z29VELASystemdIsDefaultEnableGetRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERb", lib.isDefaultEnable) &&
      Bind(units, "_Z22VELASystemdPackedInGetRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERSt6vectorIS4_SaIS4_EE", lib.packedIn) &&
      Bind(units, "_Z23VELASystemdBelongsToGetRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERSt6vectorIS4_SaIS4_EE", lib.belongsTo) &&
      Bind(units, "_Z27VELASystemdTargetCarriesGetRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERSt6vectorIS4_SaIS4_EE", lib.targetCarries) &&
      Bind(units, "_Z37VELASystemdEnableStatusGetInGeneratorRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE", lib.enableStatus) &&
      Bind(units, "_ZN4VELA7Systemd21IsEnableStatusChangedERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE", lib.isChanged) &&
      Bind(units, "_ZN4VELA7Systemd11UnitPathGetERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE", lib.unitPath) &&
      Bind(units, "_ZN4VELA7Systemd22ListServicesWithReasonERSt6vectorINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESaIS7_EE", lib.listWithReason) &&
      Bind(core, "VLIBCErrGet", lib.errorCode);
  return bound ? "" : std::string("the platform library lacks an operation: ") + dlerror();
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : " ") + name;
  return text;
}

Json::Value Answered(bool ok, const std::string& value, const UnitLibrary& lib) {
  Json::Value answer;
  answer["ok"] = ok;
  if (ok) answer["value"] = value;
  else answer["error"] = lib.errorCode();
  return answer;
}

Json::Value Flag(bool (*query)(const std::string&, bool&), const std::string& unit, const UnitLibrary& lib) {
  bool flag = false;
  bool ok = query(unit, flag);
  return Answered(ok, flag ? "yes" : "no", lib);
}

Json::Value List(bool (*query)(const std::string&, std::vector<std::string>&), const std::string& unit,
                 const UnitLibrary& lib) {
  std::vector<std::string> names;
  bool ok = query(unit, names);
  return Answered(ok, Joined(names), lib);
}

Json::Value EnableStatus(const std::string& unit, const UnitLibrary& lib) {
  int status = lib.enableStatus(unit);
  std::string name = status >= 0 && status < 4 ? ENABLE_STATUS_NAMES[status] : "unknown";
  return Answered(status >= 0, std::to_string(status) + " " + name, lib);
}

Json::Value UnitFile(const std::string& unit, const UnitLibrary& lib) {
  try {
    return Answered(true, lib.unitPath(unit), lib);
  } catch (const std::exception&) {
    return Answered(false, "", lib);
  }
}

Json::Value Membership(bool (*query)(std::vector<std::string>&), const std::string& unit, const UnitLibrary& lib) {
  std::vector<std::string> names;
  bool ok = query(names);
  return Answered(ok, std::find(names.begin(), names.end(), unit) != names.end() ? "yes" : "no", lib);
}

Json::Value Listed(const std::string& unit, const UnitLibrary& lib) {
  std::vector<std::string> names;
  bool ok = lib.listUnits(names, "");
  return Answered(ok, std::find(names.begin(), names.end(), unit) != names.end() ? "yes" : "no", lib);
}

Json::Value AskAll(const std::string& unit, const UnitLibrary& lib) {
  Json::Value answers(Json::arrayValue);
  auto add = [&](const char* name, Json::Value answer) {
    answer["name"] = name;
    answers.append(answer);
  };
  add("listed", Listed(unit, lib));
  add("unit file", UnitFile(unit, lib));
  add("supported", Flag(lib.isSupport, unit, lib));
  add("enabled by default", Flag(lib.isDefaultEnable, unit, lib));
  add("enable status", EnableStatus(unit, lib));
  add("status changed", Answered(true, lib.isChanged(unit) ? "yes" : "no", lib));
  add("packed in", List(lib.packedIn, unit, lib));
  add("stays alive when isolating to", List(lib.belongsTo, unit, lib));
  add("carries when isolated", List(lib.targetCarries, unit, lib));
  add("reason check", Membership(lib.listWithReason, unit, lib));
  return answers;
}

Json::Value ListAll(const UnitLibrary& lib) {
  Json::Value listing(Json::objectValue);
  std::vector<std::string> units;
  if (!lib.listUnits(units, "")) return Json::Value(lib.errorCode());
  for (const std::string& unit : units) listing[unit] = UnitFile(unit, lib).get("value", "").asString();
  return listing;
}

// Enters `root` and asks; the answer, or {"failure": why}, as JSON text.
Json::Value AskInside(const std::string& root, const std::function<Json::Value(const UnitLibrary&)>& ask) {
  Json::Value result;
  std::string text;
  bool ok = CollectFromChild(
      [&] {
        Json::Value answer;
        UnitLibrary lib{};
        std::string failure = chroot(root.c_str()) < 0 || chdir("/") < 0 ? "cannot enter the target" : LoadLibrary(lib);
        if (failure.empty()) answer["answers"] = ask(lib);
        else answer["failure"] = failure;
        return Json::writeString(Json::StreamWriterBuilder(), answer);
      },
      text);
  std::string errors;
  std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!ok || !reader->parse(text.data(), text.data() + text.size(), &result, &errors))
    result["failure"] = "the platform library failed while answering";
  return result;
}

}  // namespace

UnitAnswers AskAboutUnit(const std::string& root, const std::string& unit) {
  Json::Value result = AskInside(root, [&](const UnitLibrary& lib) { return AskAll(unit, lib); });
  UnitAnswers answers;
  answers.failure = result.get("failure", "").asString();
  for (const Json::Value& item : result["answers"]) {
    Answer answer{item["ok"].asBool(), item.get("error", 0).asInt(), item.get("value", "").asString()};
    answers.answers.emplace_back(item["name"].asString(), answer);
  }
  return answers;
}

Listing ListPlatformUnits(const std::string& root) {
  Json::Value result = AskInside(root, [](const UnitLibrary& lib) { return ListAll(lib); });
  Listing listing;
  listing.failure = result.get("failure", "").asString();
  const Json::Value& units = result["answers"];
  if (units.isInt()) listing.failure = "the platform library cannot list the units (error " + std::to_string(units.asInt()) + ")";
  if (units.isObject())
    for (const std::string& unit : units.getMemberNames()) listing.unitFiles[unit] = units[unit].asString();
  return listing;
}

}  // namespace preview
