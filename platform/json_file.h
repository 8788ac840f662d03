// Loading a JSON document from a file into a Json::Value.
#pragma once

#include <json/value.h>

#include <string>

// Loads the JSON object in the regular file at `path` into `value`. Returns
// false, leaving `value` unspecified, when the path is not a regular file (after
// following links), is larger than 1 MiB, does not parse strictly, nests too
// deeply, or holds anything but an object at its root. Never throws.
bool LoadJsonFile(Json::Value& value, const std::string& path);
