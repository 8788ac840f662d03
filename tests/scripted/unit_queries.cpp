// The unit library's listings and per-unit metadata queries, as the script says.
#include "unit_library.h"

#include "answers.h"
#include "process_state.h"
#include "record.h"

using scripted::AnswerFlagQuery;
using scripted::AnswerListQuery;
using scripted::FormatText;
using scripted::WhenMissing;
using scripted::detail::BeginCall;

namespace {

bool AnswerFromTable(const char* call, const char* member, const std::string& unit,
                     std::vector<std::string>& out) {
    const Json::Value& script = BeginCall(call, {FormatText(unit)}).script;
    return AnswerListQuery(scripted::Answer(script, member, unit), WhenMissing::kNoPolicyFails, out);
}

bool AnswerFromTable(const char* call, const char* member, const std::string& unit, bool& out) {
    const Json::Value& script = BeginCall(call, {FormatText(unit)}).script;
    return AnswerFlagQuery(scripted::Answer(script, member, unit), out);
}

}  // namespace

bool VELASystemdListUnits(std::vector<std::string>& units, const std::string& selector) {
    const Json::Value& script = BeginCall("VELASystemdListUnits", {FormatText(selector)}).script;
    return AnswerListQuery(script["units"], WhenMissing::kEmptyList, units);
}

bool VELASystemdIsSupportGet(const std::string& unit, bool& supported) {
    return AnswerFromTable("VELASystemdIsSupportGet", "support", unit, supported);
}

bool VELASystemdIsDefaultEnableGet(const std::string& unit, bool& enabled) {
    return AnswerFromTable("VELASystemdIsDefaultEnableGet", "default_enable", unit, enabled);
}

bool VELASystemdPackedInGet(const std::string& unit, std::vector<std::string>& packs) {
    return AnswerFromTable("VELASystemdPackedInGet", "packed_in", unit, packs);
}

bool VELASystemdBelongsToGet(const std::string& unit, std::vector<std::string>& targets) {
    return AnswerFromTable("VELASystemdBelongsToGet", "belongs_to", unit, targets);
}

bool VELASystemdTargetCarriesGet(const std::string& target, std::vector<std::string>& units) {
    return AnswerFromTable("VELASystemdTargetCarriesGet", "target_carries", target, units);
}

namespace VELA {
namespace Systemd {

bool ListServicesWithReason(std::vector<std::string>& services) {
    const Json::Value& script = BeginCall("VELA::Systemd::ListServicesWithReason", {}).script;
    return AnswerListQuery(script["services_with_reason"], WhenMissing::kEmptyList, services);
}

}  // namespace Systemd
}  // namespace VELA
