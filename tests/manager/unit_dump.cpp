#include "unit_dump.h"

#include <sstream>

namespace manager {

namespace {

const std::string UNIT_HEADER = "-> Unit ";
const std::string LOAD_STATE = "Unit Load State";
const std::string DROP_IN_PATH = "DropIn Path";
const std::string COMMAND_LINE = "Command Line";
// The kinds of dependency the dump lists as "Kind: name (origin-…)".
const std::set<std::string> DEPENDENCY_KINDS = {"Wants", "Requires", "PartOf", "ConsistsOf",
                                                "ReloadPropagatedFrom", "PropagatesReloadTo"};

// Number of leading tabs, and the rest of the line.
size_t Depth(const std::string& line, std::string& rest) {
    size_t depth = line.find_first_not_of('\t');
    if (depth == std::string::npos) {
        rest.clear();
        return line.size();
    }
    rest = line.substr(depth);
    return depth;
}

// "Key: value" -> key and value; false for a line of another form.
bool SplitSetting(const std::string& text, std::string& key, std::string& value) {
    size_t colon = text.find(": ");
    if (colon == std::string::npos) {
        return false;
    }
    key = text.substr(0, colon);
    value = text.substr(colon + 2);
    return true;
}

// "x.target (origin-file)" -> "x.target".
std::string WithoutRemark(const std::string& value) {
    size_t remark = value.find(" (");
    return remark == std::string::npos ? value : value.substr(0, remark);
}

}  // namespace

std::set<std::string> DumpedUnit::Dependencies(const std::string& kind) const {
    auto found = dependencies.find(kind);
    return found == dependencies.end() ? std::set<std::string>{} : found->second;
}

std::vector<std::string> DumpedUnit::Commands(const std::string& setting) const {
    auto found = commands.find(setting);
    return found == commands.end() ? std::vector<std::string>{} : found->second;
}

std::map<std::string, DumpedUnit> ParseUnitDump(const std::string& dump) {
    std::map<std::string, DumpedUnit> units;
    DumpedUnit* unit = nullptr;
    std::string commandSetting;  // the "-> ExecStartPre:" group being read
    std::istringstream lines(dump);
    std::string line;
    std::string text;
    while (std::getline(lines, line)) {
        const size_t depth = Depth(line, text);
        if (depth == 1 && text.compare(0, UNIT_HEADER.size(), UNIT_HEADER) == 0 && text.back() == ':') {
            const std::string name = text.substr(UNIT_HEADER.size(), text.size() - UNIT_HEADER.size() - 1);
            unit = &units[name];
            commandSetting.clear();
            continue;
        }
        if (depth < 2) {
            unit = nullptr;  // whatever this is, it ends the block
            continue;
        }
        if (unit == nullptr) {
            continue;
        }
        if (depth == 2) {
            commandSetting.clear();
            if (text.compare(0, 3, "-> ") == 0 && text.back() == ':') {
                commandSetting = text.substr(3, text.size() - 4);
                continue;
            }
            std::string key;
            std::string value;
            if (!SplitSetting(text, key, value)) {
                continue;
            }
            if (key == LOAD_STATE) {
                unit->loadState = value;
            } else if (key == DROP_IN_PATH) {
                unit->dropInPaths.push_back(value);
            } else if (DEPENDENCY_KINDS.count(key)) {
                unit->dependencies[key].insert(WithoutRemark(value));
            }
            continue;
        }
        std::string key;
        std::string value;
        if (!commandSetting.empty() && SplitSetting(text, key, value) && key == COMMAND_LINE) {
            unit->commands[commandSetting].push_back(value);
        }
    }
    return units;
}

}  // namespace manager
