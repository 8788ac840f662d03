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
//   "delay_ms": {Name: ms}                  every call of that operation (its
//       recorded name) sleeps that long after it is recorded; missing: none
// A failure is {"fail": code, "file": "f.cpp", "line": 12} (file and line
// optional); it sets the error state and makes the call return false (-1 for
// fork and touch). With "sets": value, the out-parameter is filled with that
// value before the call fails.
//
// Record: one line per call, "<pid> Name(arg, arg)", in call order per process;
// children forked through VLIBCProcForkEx append to the same file. Names are
// the operations' own (VELASystemdIsSupportGet, VELA::Systemd::UnitPathGet,
// VLIBCErrGet, ...); null C-string arguments are written as "null".
//
// Details of the script:
//   - "units" and "services_with_reason" missing: success with an empty list.
//   - "fail" may also be a string in C notation ("0x1F"). Without "file" and
//     "line" the error state holds "scripted" and 0; so does the 0x700 failure
//     of a unit missing from a query's table.
//   - "fork" "calls" count the VLIBCProcForkEx calls of each process from 1; a
//     child made by a real fork counts its own calls from 1 again.
//   - "enable" or "disable" false: the call returns false and leaves the error
//     state as it was.
//   - The script is checked when it is loaded: an unknown member or an answer
//     of the wrong shape aborts, so that a typo cannot pass silently.
//   - Without $VELA_SCRIPT the script is {}; without $VELA_RECORD nothing is
//     recorded.
// Real effects: AddUnitSection creates dir with its parents (0755) and writes
// "[Section]\n" then "Key=Value\n" per setting, replacing the file;
// LinkVelaReason creates dropInDir with its parents and links
// dropInDir + "vela-reason.conf" -> reasonFile (the same link existing already
// is success); VLIBCFileTouch creates an empty file (0644) unless something is
// there. When a real effect fails, the call fails with errno as the code and
// file "scripted".
//
// Details of the record: arguments are written verbatim without quotes
// (control characters as \xHH), ints in decimal, settings maps as
// "{Key=Value, Key=Value}" in key order; out-parameters are not written. So:
//   VELASystemdListUnits()                      the selector "" is empty text
//   VELASystemdIsSupportGet(a.service)
//   VELA::Systemd::AddUnitSection(/n/a.service.d/, vela-pack.conf, Unit, {PartOf=x.target, ReloadPropagatedFrom=x.target})
//   VELA::Systemd::LinkVelaReason(/e/a.service.d/, /run/velasystemd/reason-conf/vela-reason.conf)
//   VLIBCProcForkEx(187)
//   VLIBCExec(/usr/vela/sbin/velaservicemigrate, --all, null, null, null)
//   VLIBCErrGet()
// A call is recorded when it starts, so a fork's line comes from the parent.
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
