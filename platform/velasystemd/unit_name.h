// Unit names: which strings name units, their types, templates and instances.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velasystemd {

// The longest unit name systemd loads, in bytes.
constexpr size_t UNIT_NAME_MAX = 255;

// True for a name systemd would load: 1 to UNIT_NAME_MAX bytes of
// [A-Za-z0-9:_.\-] before the last ".", a known type after it, and optionally
// an "@" (not first) that starts the instance part ("foo@.service" is a
// template, "foo@bar.service" an instance; the instance may hold further "@").
bool IsValidUnitName(std::string_view name);

// True for the types the platform knows: service, socket, target, device,
// mount, automount, swap, timer, path, slice, scope.
bool IsKnownUnitType(std::string_view type);

// The part after the last "."; "" when there is no ".".
std::string UnitTypeOf(const std::string& name);

// `name` when it ends in a known type, else `name` + ".service".
std::string NormalizedUnitName(const std::string& name);

// For valid names: "foo@.service" is a template, "foo@bar.service" an instance.
bool IsTemplateName(const std::string& name);
bool IsInstanceName(const std::string& name);

// The template an instance is made from: "foo@bar.service" -> "foo@.service".
std::string TemplateOfInstance(const std::string& instance);

}  // namespace velasystemd
