// Unit names, types and paths as the script says, with the platform's own
// rules where the script is silent.
#include <set>
#include <stdexcept>

#include "process_state.h"
#include "record.h"
#include "unit_library.h"

using scripted::FormatText;
using scripted::detail::BeginCall;

namespace {

const char* const UNIT_DIR = "/usr/lib/systemd/system/";
const char* const DEFAULT_TYPE = "service";

// Everything after the last ".", or "" when there is no ".".
std::string SuffixOf(const std::string& name) {
    size_t dot = name.rfind('.');
    return dot == std::string::npos ? "" : name.substr(dot + 1);
}

bool HasKnownType(const std::string& name) {
    static const std::set<std::string> types = {"service", "socket", "device", "mount",
                                                "automount", "swap", "target", "path",
                                                "timer", "slice", "scope"};
    return types.count(SuffixOf(name)) > 0;
}

const Json::Value& ScriptOfCall(const char* call, const std::string& unit) {
    return BeginCall(call, {FormatText(unit)}).script;
}

}  // namespace

namespace VELA {
namespace Systemd {

std::string NormalizedUnitNameGet(const std::string& name) {
    const Json::Value& script = ScriptOfCall("VELA::Systemd::NormalizedUnitNameGet", name);
    const Json::Value& normalized = scripted::Answer(script, "normalized", name);
    if (normalized.isString()) {
        return normalized.asString();
    }
    return HasKnownType(name) ? name : name + "." + DEFAULT_TYPE;
}

std::string UnitTypeGet(const std::string& unit) {
    const Json::Value& script = ScriptOfCall("VELA::Systemd::UnitTypeGet", unit);
    const Json::Value& type = scripted::Answer(script, "type", unit);
    return type.isString() ? type.asString() : SuffixOf(unit);
}

std::string UnitPathGet(const std::string& unit) {
    const Json::Value& script = ScriptOfCall("VELA::Systemd::UnitPathGet", unit);
    const Json::Value& path = scripted::Answer(script, "path", unit);
    if (path.isObject()) {
        throw std::runtime_error(path["throw"].asString());
    }
    return path.isString() ? path.asString() : UNIT_DIR + unit;
}

}  // namespace Systemd
}  // namespace VELA
