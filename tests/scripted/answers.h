// Turning a scripted answer into the result of a query: the out-parameter,
// the returned flag and the error state.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace scripted {

// What a query answers when its table does not name the unit.
enum class WhenMissing {
    kEmptyList,      // success with an empty list (the two listings)
    kNoPolicyFails,  // failure with the code 0x700 (the per-unit queries)
};

// A list query: a list fills `out` (appended in order) and succeeds; a failure
// appends its "sets" to `out`, sets the error state and returns false.
bool AnswerListQuery(const Json::Value& answer, WhenMissing whenMissing, std::vector<std::string>& out);

// A flag query: a bool goes into `out`; a failure writes its "sets" into `out`
// first. A missing answer fails with 0x700.
bool AnswerFlagQuery(const Json::Value& answer, bool& out);

// An operation that succeeds unless the script says false (error state left
// as it is) or a failure (error state set). A missing answer succeeds.
bool AnswerOutcome(const Json::Value& answer);

}  // namespace scripted
