#include "answers.h"

#include "process_state.h"
#include "script.h"

namespace scripted {

namespace {

bool FailWith(const Failure& failure) {
    detail::SetError(failure);
    return false;
}

Failure NoPolicy() { return {CODE_NO_POLICY, DEFAULT_FAILURE_FILE, DEFAULT_FAILURE_LINE, {}}; }

void AppendNames(const Json::Value& names, std::vector<std::string>& out) {
    for (const Json::Value& name : names) {
        out.push_back(name.asString());
    }
}

}  // namespace

bool AnswerListQuery(const Json::Value& answer, WhenMissing whenMissing, std::vector<std::string>& out) {
    if (answer.isNull()) {
        return whenMissing == WhenMissing::kEmptyList || FailWith(NoPolicy());
    }
    if (IsFailure(answer)) {
        Failure failure = ReadFailure(answer);
        AppendNames(failure.sets, out);
        return FailWith(failure);
    }
    AppendNames(answer, out);
    return true;
}

bool AnswerFlagQuery(const Json::Value& answer, bool& out) {
    if (answer.isNull()) {
        return FailWith(NoPolicy());
    }
    if (IsFailure(answer)) {
        Failure failure = ReadFailure(answer);
        if (failure.sets.isBool()) {
            out = failure.sets.asBool();
        }
        return FailWith(failure);
    }
    out = answer.asBool();
    return true;
}

bool AnswerOutcome(const Json::Value& answer) {
    if (IsFailure(answer)) {
        return FailWith(ReadFailure(answer));
    }
    return !answer.isBool() || answer.asBool();
}

}  // namespace scripted
