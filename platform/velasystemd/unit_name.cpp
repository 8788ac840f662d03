// Unit name rules, kept to systemd's so that every listed name is one the
// service manager accepts.

#include "unit_name.h"


namespace velasystemd {
namespace {

constexpr std::string_view UNIT_TYPES[] = {
    "service", "socket", "target", "device", "mount", "automount",
    "swap",    "timer",  "path",   "slice",  "scope",
};
constexpr char TYPE_SEPARATOR = '.';
constexpr char INSTANCE_SEPARATOR = '@';
constexpr std::string_view DEFAULT_TYPE_SUFFIX = ".service";
constexpr std::string_view NAME_PUNCTUATION = ":-_.\\";

// ASCII only: the locale must not widen what counts as a letter.
bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           NAME_PUNCTUATION.find(c) != std::string_view::npos;
}

}  // namespace

bool IsKnownUnitType(std::string_view type) {
    for (std::string_view known : UNIT_TYPES) {
        if (type == known) return true;
    }
    return false;
}

bool IsValidUnitName(std::string_view name) {
    if (name.empty() || name.size() > UNIT_NAME_MAX) return false;
    size_t dot = name.rfind(TYPE_SEPARATOR);
    if (dot == std::string_view::npos || dot == 0) return false;
    if (!IsKnownUnitType(name.substr(dot + 1))) return false;
    for (size_t i = 0; i < dot; ++i) {
        if (name[i] != INSTANCE_SEPARATOR && !IsNameCharacter(name[i])) return false;
    }
    return name[0] != INSTANCE_SEPARATOR;
}

std::string UnitTypeOf(const std::string& name) {
    size_t dot = name.rfind(TYPE_SEPARATOR);
    return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

std::string NormalizedUnitName(const std::string& name) {
    if (IsKnownUnitType(UnitTypeOf(name))) return name;
    return name + std::string(DEFAULT_TYPE_SUFFIX);
}

bool IsTemplateName(const std::string& name) {
    size_t at = name.find(INSTANCE_SEPARATOR);
    return at != std::string::npos && at + 1 == name.rfind(TYPE_SEPARATOR);
}

bool IsInstanceName(const std::string& name) {
    size_t at = name.find(INSTANCE_SEPARATOR);
    size_t dot = name.rfind(TYPE_SEPARATOR);
    return at != std::string::npos && dot != std::string::npos && dot > at + 1;
}

std::string TemplateOfInstance(const std::string& instance) {
    size_t at = instance.find(INSTANCE_SEPARATOR);
    size_t dot = instance.rfind(TYPE_SEPARATOR);
    return instance.substr(0, at + 1) + instance.substr(dot);
}

}  // namespace velasystemd
