#include "scripted_platform.h"

#include <unistd.h>

#include <fstream>

#include "process_state.h"

namespace scripted {

std::vector<Call> RecordedCalls(const std::string& recordPath) {
    std::vector<Call> calls;
    std::ifstream record(recordPath);
    std::string line;
    while (std::getline(record, line)) {
        size_t space = line.find(' ');
        if (space == std::string::npos) {
            continue;
        }
        calls.push_back({std::stoi(line.substr(0, space)), line.substr(space + 1)});
    }
    return calls;
}

std::vector<std::string> Calls() {
    std::vector<std::string> texts;
    for (const Call& call : RecordedCalls(detail::RecordPath())) {
        if (call.pid == getpid()) {
            texts.push_back(call.text);
        }
    }
    return texts;
}

std::vector<std::string> AllCalls() {
    std::vector<std::string> texts;
    for (const Call& call : RecordedCalls(detail::RecordPath())) {
        texts.push_back(call.text);
    }
    return texts;
}

}  // namespace scripted
