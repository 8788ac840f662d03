// The script of the scripted platform: parsing, checking its shape, and
// reading the answers and failures it holds.
#pragma once

#include <json/value.h>

#include <string>

namespace scripted {

// File and line of the error state when a failure names none, and of the
// failures the platform makes up itself (a unit missing from a query's table).
extern const char* const DEFAULT_FAILURE_FILE;
constexpr int DEFAULT_FAILURE_LINE = 0;

// The code of a query about a unit that its table does not name.
constexpr int CODE_NO_POLICY = 0x700;

// One scripted failure: what goes into the error state, and the value to put
// into the out-parameter before failing (null when there is none).
struct Failure {
    int code;
    std::string file;
    int line;
    Json::Value sets;
};

// Parses `text` into `script` and checks every member's shape, so that a typo
// in a test's script stops the test instead of passing silently. On failure
// returns false and says why in `error`.
bool ParseScript(const std::string& text, Json::Value& script, std::string& error);

// True when `answer` is a failure object ({"fail": code, ...}).
bool IsFailure(const Json::Value& answer);

// The failure that `answer` (an IsFailure object) describes.
Failure ReadFailure(const Json::Value& answer);

// The answer for `key` in the table `member` of the script; null when either
// is missing.
const Json::Value& Answer(const Json::Value& script, const char* member, const std::string& key);

}  // namespace scripted
