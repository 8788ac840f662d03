// Reading the service manager's own account of the units it loaded: the dump
// that `systemd-analyze verify` writes on standard output at log level debug.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace manager {

// One "-> Unit NAME:" block of the dump.
struct DumpedUnit {
    std::string loadState;                 // "Unit Load State"
    std::vector<std::string> dropInPaths;  // "DropIn Path", in the dump's order
    // Dependencies by kind ("Wants", "PartOf", "ReloadPropagatedFrom"): the
    // names, without the "(origin-…)" remark.
    std::map<std::string, std::set<std::string>> dependencies;
    // Command lists by setting ("ExecStartPre"): each command's "Command Line".
    std::map<std::string, std::vector<std::string>> commands;

    // The names of one kind of dependency; empty when there is none.
    std::set<std::string> Dependencies(const std::string& kind) const;
    // The command lines of one setting; empty when there is none.
    std::vector<std::string> Commands(const std::string& setting) const;
};

// Unit name -> what the dump says about it. Lines outside unit blocks are
// passed over.
std::map<std::string, DumpedUnit> ParseUnitDump(const std::string& dump);

}  // namespace manager
