// The platform every fault case starts from, what the generator makes of it
// when nothing fails, and the names the cases share.
#pragma once

#include <string>
#include <vector>

#include "fault_sandbox.h"

namespace faults {

// Source files as log lines name them.
extern const char* const DRIVER;
extern const char* const MASKING;
extern const char* const DEFAULTS;
extern const char* const STAY_ALIVE;
extern const char* const PACKING;
extern const char* const WANTS;
extern const char* const REASONS;
extern const char* const UPGRADE;

extern const std::string REASON_FILE;  // the shared reason drop-in, inside the sandbox
extern const std::string UNIT_DIR;     // where the scripted platform says unit files lie

// A platform under which every task has work: a.service is unsupported and
// stays alive for x.target, b.service is enabled by default and packed in
// x.target and y.target, x.target carries c.service (static), and a.service
// and b.service have a reason. Units missing from a query's table fail it
// with 0x700.
extern const char* const BASE_SCRIPT;

// What a run on the base platform makes, paths below the sandbox's "/".
sandbox::TreeSnapshot BaseOutput();

// The state the base platform's runs start from: the reason drop-in an
// earlier run left, with a content of its own.
void PrepareBasePlatform(sandbox::Sandbox& box);

// The one enabling the base platform asks for.
extern const char* const ENABLE_B;
// The calls that enable, disable or run a program.
extern const std::vector<std::string> ENABLING;

// Base outputs (each with all below it) that stand for "the run wrote nothing".
extern const std::vector<std::string> NOTHING;

// A path below EarlyDir or NormalDir, as a snapshot names it.
std::string Early(const std::string& path);
std::string Normal(const std::string& path);

// `tree` with the entries of `more` added or replacing its own.
sandbox::TreeSnapshot Union(sandbox::TreeSnapshot tree, const sandbox::TreeSnapshot& more);

// Both lists sorted, for comparing messages that come from processes
// running side by side.
std::vector<Message> Sorted(std::vector<Message> messages);

}  // namespace faults
