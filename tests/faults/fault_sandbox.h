// Running the built generator in a sandbox against a scripted platform that
// fails on purpose, and checking what must hold however the platform fails:
// the generator ends on time, prints nothing, logs only well-formed LOG_ERR
// lines and changes nothing outside the places it may write.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "sandbox.h"
#include "scripted_platform.h"
#include "temporary_dir.h"

namespace faults {

// Paths in a tree snapshot of the sandbox, relative to its "/".
extern const char* const NORMAL_OUT;  // run/systemd/generator
extern const char* const EARLY_OUT;   // run/systemd/generator.early
extern const char* const REASON_OUT;  // run/velasystemd
extern const char* const FLAGS_OUT;   // run/upgrade-bootup

// A log message split at its prefix "<file>:<line> velasystemd: ".
struct Message {
    std::string file;
    std::string text;
    bool operator==(const Message& other) const { return file == other.file && text == other.text; }
    bool operator<(const Message& other) const {
        return file != other.file ? file < other.file : text < other.text;
    }
};

// One line per message, for failure output.
std::string Describe(const std::vector<Message>& messages);

// How the sandbox's file systems differ from the ordinary private trees.
enum class Mounts {
    kOrdinary,
    kReadOnlyEarlyDir,  // EarlyDir mounted read-only
    kFullNormalDir,     // NormalDir a tmpfs without a free inode or block
};

struct FaultRun {
    sandbox::RunResult result;
    std::vector<scripted::Call> calls;
    sandbox::TreeSnapshot before;  // all private trees before the run
    sandbox::TreeSnapshot after;   // and after it

    // Every log message, in arrival order.
    std::vector<Message> Messages() const;
    // The recorded calls whose text starts with one of `names` + "(", in
    // record order.
    std::vector<std::string> CallsOf(const std::vector<std::string>& names) const;
};

// Whole-tree check: "" when every path that appeared, changed or went away
// lies below NormalDir, EarlyDir, /run/velasystemd or /run/upgrade-bootup
// (those two directories included), or went away below one of `removable`;
// otherwise one line per offending path.
std::string ChangesOutsideItsPlaces(const sandbox::TreeSnapshot& before, const sandbox::TreeSnapshot& after,
                                    const std::vector<std::string>& removable = {});

// `tree` without `path` and everything below it.
void RemoveSubtree(sandbox::TreeSnapshot& tree, const std::string& path);

// Object members of `overrides` are merged into those of `base` one level
// deep (a unit's answer replaces the base's answer for that unit); any other
// member replaces the base's.
Json::Value MergeScript(const Json::Value& base, const Json::Value& overrides);

// Parses JSON text; aborts the test on a typo.
Json::Value ParseJson(const std::string& text);

class FaultSandbox {
public:
    FaultSandbox();

    sandbox::Sandbox& Box() { return box_; }
    void WriteScript(const Json::Value& script);

    // Runs the generator with the three standard generator directories and
    // checks what holds for every run (see the top of this file); the
    // whole-tree check is the caller's, since an upgrade boot may remove
    // legacy files.
    FaultRun Run(Mounts mounts = Mounts::kOrdinary);

private:
    sandbox::TemporaryDir state_;
    sandbox::Sandbox box_;
};

}  // namespace faults
