// Enable state as the script says: status, change marks, enabling and disabling.
#include "unit_library.h"

#include "answers.h"
#include "process_state.h"
#include "record.h"

using scripted::FormatText;
using scripted::detail::BeginCall;

namespace {

// The status of a unit that the script does not name: disabled.
constexpr int UNNAMED_STATUS = 0;

const Json::Value& ScriptOfCall(const char* call, const std::string& unit) {
    return BeginCall(call, {FormatText(unit)}).script;
}

}  // namespace

int VELASystemdEnableStatusGetInGenerator(const std::string& unit) {
    const Json::Value& script = ScriptOfCall("VELASystemdEnableStatusGetInGenerator", unit);
    const Json::Value& status = scripted::Answer(script, "enable_status", unit);
    return status.isInt() ? status.asInt() : UNNAMED_STATUS;
}

bool VELASystemdEnableInGenerator(const std::string& unit) {
    const Json::Value& script = ScriptOfCall("VELASystemdEnableInGenerator", unit);
    return scripted::AnswerOutcome(scripted::Answer(script, "enable", unit));
}

bool VELASystemdDisableInGenerator(const std::string& unit) {
    const Json::Value& script = ScriptOfCall("VELASystemdDisableInGenerator", unit);
    return scripted::AnswerOutcome(scripted::Answer(script, "disable", unit));
}

namespace VELA {
namespace Systemd {

bool IsEnableStatusChanged(const std::string& unit) {
    const Json::Value& script = ScriptOfCall("VELA::Systemd::IsEnableStatusChanged", unit);
    return scripted::Answer(script, "changed", unit).asBool();
}

}  // namespace Systemd
}  // namespace VELA
