// A scripted test double of both platform libraries. Each test says, per unit,
// what every platform operation answers (failures with any code included), and
// reads back the order of the calls the code under test made.
//
// In process: link `scripted_platform` and call Install(). Preloaded into the
// built generator (LD_PRELOAD=libvelascripted.so): the script is read from the
// file named by $VELA_SCRIPT and the record appended to $VELA_RECORD.
//
// Script: a JSON object; every member is optional.
//   "units", "services_with_reason": [names] or a failure.
//   "support", "default_enable": {unit: bool or failure}.
//   "packed_in", "belongs_to", "target_carries": {unit: [names] or failure}.
//       A unit missing from one of these five fails that query with 0x700.
//   "enable_status": {unit: int}            missing: 0
//   "changed": {unit: bool}                 missing: false
//   "enable", "disable": {unit: bool or failure}   missing: true
//   "type": {unit: string}                  missing: the suffix after the last "."
//   "path": {unit: string or {"throw": "what"}}    missing: "/usr/lib/systemd/system/" + unit
//   "normalized": {name: string}            missing: name, + ".service" without a known suffix
//   "add_unit_section": {dir+fileName: false or failure}  missing: file written, true
//   "link_vela_reason": {dropInDir: false or failure}     missing: link made, true
//   "fork": failure, optionally with "calls": [1-based numbers of the calls that
//       fail in this process]; missing: a real fork.
//   "exec": {program: int}                  missing: 0; nothing is ever run
//   "touch": {path: failure}                missing: the file is really created
// A failure is {"fail": code, "file": "f.cpp", "line": 12} (file and line
// optional); it sets the error state and makes the call return false (-1 for
// fork and touch). With "sets": value, the out-parameter is filled with that
// value before the call fails.
//
// Record: one line per call, "<pid> Name(arg, arg)", in call order per process;
// children forked through VLIBCProcForkEx append to the same file. Names are
// the operations' own (VELASystemdIsSupportGet, VELA::Systemd::UnitPathGet,
// VLIBCErrGet, ...); null C-string arguments are written as "null".
#pragma once

#include <string>
#include <vector>

namespace scripted {

// Replaces the script with `scriptJson` (aborts the test run when it does not
// parse) and starts an empty record at `recordPath`.
void Install(const std::string& scriptJson, const std::string& recordPath);

struct Call {
    int pid;
    std::string text;  // "Name(arg, arg)"
};

// Every recorded call, in file order.
std::vector<Call> RecordedCalls(const std::string& recordPath);

// The calls of the current record made by this process, texts only.
std::vector<std::string> Calls();

// The calls of the current record from every process, texts only.
std::vector<std::string> AllCalls();

}  // namespace scripted
