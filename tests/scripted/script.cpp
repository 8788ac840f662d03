#include "script.h"

#include <json/reader.h>

#include <cstdlib>
#include <map>
#include <memory>

namespace scripted {

const char* const DEFAULT_FAILURE_FILE = "scripted";

namespace {

using ValueCheck = bool (*)(const Json::Value&);

bool IsStringList(const Json::Value& value) {
    if (!value.isArray()) {
        return false;
    }
    for (const Json::Value& item : value) {
        if (!item.isString()) {
            return false;
        }
    }
    return true;
}

bool IsBool(const Json::Value& value) { return value.isBool(); }
bool IsInt(const Json::Value& value) { return value.isInt(); }
bool IsString(const Json::Value& value) { return value.isString(); }
bool IsNothing(const Json::Value&) { return false; }

// A code is a JSON integer or a string in C notation ("0x1F").
bool ParseCode(const Json::Value& value, int& code) {
    if (value.isInt()) {
        code = value.asInt();
        return true;
    }
    if (!value.isString() || value.asString().empty()) {
        return false;
    }
    const std::string text = value.asString();
    char* end = nullptr;
    long parsed = std::strtol(text.c_str(), &end, 0);
    code = static_cast<int>(parsed);
    return *end == '\0';
}

bool IsCallList(const Json::Value& value) {
    if (!value.isArray()) {
        return false;
    }
    for (const Json::Value& item : value) {
        if (!item.isInt() || item.asInt() < 1) {
            return false;
        }
    }
    return true;
}

// {"fail": code, "file": "f.cpp", "line": 12, "sets": value}; "calls" only
// where `allowCalls`.
bool IsFailureShape(const Json::Value& value, ValueCheck setsCheck, bool allowCalls) {
    int code = 0;
    if (!value.isObject() || !ParseCode(value["fail"], code)) {
        return false;
    }
    for (const std::string& name : value.getMemberNames()) {
        const Json::Value& member = value[name];
        bool ok = name == "fail" || (name == "file" && member.isString()) ||
                  (name == "line" && member.isInt()) || (name == "sets" && setsCheck(member)) ||
                  (name == "calls" && allowCalls && IsCallList(member));
        if (!ok) {
            return false;
        }
    }
    return true;
}

bool IsListOrFailure(const Json::Value& value) {
    return IsStringList(value) || IsFailureShape(value, IsStringList, false);
}

bool IsFlagOrFailure(const Json::Value& value) {
    return value.isBool() || IsFailureShape(value, IsBool, false);
}

bool IsPlainFailure(const Json::Value& value) { return IsFailureShape(value, IsNothing, false); }

bool IsForkFailure(const Json::Value& value) { return IsFailureShape(value, IsNothing, true); }

bool IsRefusal(const Json::Value& value) {
    return (value.isBool() && !value.asBool()) || IsPlainFailure(value);
}

bool IsDelay(const Json::Value& value) { return value.isInt() && value.asInt() >= 0; }

bool IsPathAnswer(const Json::Value& value) {
    return value.isString() ||
           (value.isObject() && value.size() == 1 && value["throw"].isString());
}

// How each member of a script looks: a table (an object whose every value
// passes the check) or a single value.
struct MemberShape {
    bool table;
    ValueCheck check;
};

const std::map<std::string, MemberShape>& MemberShapes() {
    static const std::map<std::string, MemberShape> shapes = {
        {"units", {false, IsListOrFailure}},
        {"services_with_reason", {false, IsListOrFailure}},
        {"support", {true, IsFlagOrFailure}},
        {"default_enable", {true, IsFlagOrFailure}},
        {"packed_in", {true, IsListOrFailure}},
        {"belongs_to", {true, IsListOrFailure}},
        {"target_carries", {true, IsListOrFailure}},
        {"enable_status", {true, IsInt}},
        {"changed", {true, IsBool}},
        {"enable", {true, IsFlagOrFailure}},
        {"disable", {true, IsFlagOrFailure}},
        {"type", {true, IsString}},
        {"path", {true, IsPathAnswer}},
        {"normalized", {true, IsString}},
        {"add_unit_section", {true, IsRefusal}},
        {"link_vela_reason", {true, IsRefusal}},
        {"fork", {false, IsForkFailure}},
        {"exec", {true, IsInt}},
        {"touch", {true, IsPlainFailure}},
        {"delay_ms", {true, IsDelay}},
    };
    return shapes;
}

bool CheckMember(const std::string& name, const Json::Value& value, std::string& error) {
    auto shape = MemberShapes().find(name);
    if (shape == MemberShapes().end()) {
        error = "unknown member \"" + name + "\"";
        return false;
    }
    if (!shape->second.table) {
        if (!shape->second.check(value)) {
            error = "member \"" + name + "\" has the wrong shape";
            return false;
        }
        return true;
    }
    if (!value.isObject()) {
        error = "member \"" + name + "\" is not an object";
        return false;
    }
    for (const std::string& key : value.getMemberNames()) {
        if (!shape->second.check(value[key])) {
            error = "entry \"" + key + "\" of \"" + name + "\" has the wrong shape";
            return false;
        }
    }
    return true;
}

}  // namespace

bool ParseScript(const std::string& text, Json::Value& script, std::string& error) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &script, &error)) {
        return false;
    }
    if (!script.isObject()) {
        error = "the script is not a JSON object";
        return false;
    }
    for (const std::string& name : script.getMemberNames()) {
        if (!CheckMember(name, script[name], error)) {
            return false;
        }
    }
    return true;
}

bool IsFailure(const Json::Value& answer) { return answer.isObject() && answer.isMember("fail"); }

Failure ReadFailure(const Json::Value& answer) {
    Failure failure{0, answer.get("file", DEFAULT_FAILURE_FILE).asString(),
                    answer.get("line", DEFAULT_FAILURE_LINE).asInt(), answer["sets"]};
    ParseCode(answer["fail"], failure.code);
    return failure;
}

const Json::Value& Answer(const Json::Value& script, const char* member, const std::string& key) {
    const Json::Value& table = script[member];
    if (!table.isObject()) {
        return Json::Value::nullSingleton();
    }
    return table[key];
}

}  // namespace scripted
