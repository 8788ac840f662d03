#include "fault_sandbox.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>

#include "child_run.h"
#include "preload.h"
#include "syslog_capture.h"

namespace faults {

const char* const NORMAL_OUT = "run/systemd/generator";
const char* const EARLY_OUT = "run/systemd/generator.early";
const char* const REASON_OUT = "run/velasystemd";
const char* const FLAGS_OUT = "run/upgrade-bootup";

namespace {

using sandbox::Sandbox;

constexpr int LOG_ERR_USER = 11;  // facility LOG_USER (8) + LOG_ERR (3)
const char* const GENERATOR_IDENT = "vela-system-generator";
const char* const SCRIPT_NAME = "script.json";
const char* const RECORD_NAME = "record";
// Generous: the largest listing is run under the sanitizers on a busy machine.
constexpr std::chrono::seconds TIME_LIMIT{120};

// The sandbox is started from a private mount namespace of its own, in which
// the host directory behind a generator directory ($1) is mounted over first;
// bubblewrap's recursive binds carry that mount into the sandbox. Nothing
// changes in the host's mount table.
const char* const READ_ONLY_MOUNT =
    "mount --bind \"$1\" \"$1\" && mount -o remount,bind,ro \"$1\" || exit 125; shift; exec \"$@\"";
const char* const FULL_TMPFS_MOUNT =
    "mount -t tmpfs -o size=4k,nr_inodes=1,mode=0755 vela-full \"$1\" || exit 125; shift; exec \"$@\"";

bool IsAtOrBelow(const std::string& path, const std::string& dir) {
    return path == dir ||
           (path.size() > dir.size() && path.compare(0, dir.size(), dir) == 0 && path[dir.size()] == '/');
}

bool IsBelow(const std::string& path, const std::string& dir) { return path != dir && IsAtOrBelow(path, dir); }

// The host path bubblewrap binds at /dev/log, read off its command line.
std::string LogSocketOf(const std::vector<std::string>& bwrap) {
    for (size_t i = 0; i + 2 < bwrap.size(); ++i) {
        if (bwrap[i] == "--bind" && bwrap[i + 2] == "/dev/log") {
            return bwrap[i + 1];
        }
    }
    ADD_FAILURE() << "the sandbox has no /dev/log";
    return "";
}

std::vector<std::string> WithMounts(Mounts mounts, const Sandbox& box, const std::vector<std::string>& bwrap) {
    if (mounts == Mounts::kOrdinary) {
        return bwrap;
    }
    const bool readOnly = mounts == Mounts::kReadOnlyEarlyDir;
    std::vector<std::string> argv = {"unshare", "--mount", "--propagation", "private", "sh", "-c",
                                     readOnly ? READ_ONLY_MOUNT : FULL_TMPFS_MOUNT, "sh",
                                     box.HostPath(readOnly ? Sandbox::EARLY_DIR : Sandbox::NORMAL_DIR)};
    argv.insert(argv.end(), bwrap.begin(), bwrap.end());
    return argv;
}

bool IsSourceFileName(const std::string& name) {
    const std::string suffix = ".cpp";
    if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
        return false;
    }
    for (char c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '.' && c != '-') {
            return false;
        }
    }
    return true;
}

// Splits "<file>.cpp:<line> velasystemd: <text>"; false when the line has no
// such prefix.
bool SplitLogMessage(const std::string& line, Message& message) {
    const std::string tag = " velasystemd: ";
    const size_t colon = line.find(':');
    const size_t tagAt = line.find(tag);
    if (colon == std::string::npos || tagAt == std::string::npos || tagAt <= colon + 1) {
        return false;
    }
    const std::string number = line.substr(colon + 1, tagAt - colon - 1);
    if (!IsSourceFileName(line.substr(0, colon)) ||
        number.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    message = {line.substr(0, colon), line.substr(tagAt + tag.size())};
    return true;
}

void ExpectWellFormedLog(const std::vector<sandbox::SyslogLine>& log) {
    for (const sandbox::SyslogLine& line : log) {
        Message ignored;
        EXPECT_EQ(line.priority, LOG_ERR_USER) << line.raw;
        EXPECT_EQ(line.ident, GENERATOR_IDENT) << line.raw;
        EXPECT_TRUE(SplitLogMessage(line.message, ignored)) << line.raw;
    }
}

}  // namespace

std::string Describe(const std::vector<Message>& messages) {
    std::string text;
    for (const Message& message : messages) {
        text += "  " + message.file + ": " + message.text + "\n";
    }
    return text;
}

std::vector<Message> FaultRun::Messages() const {
    std::vector<Message> messages;
    for (const sandbox::SyslogLine& line : result.log) {
        Message message;
        messages.push_back(SplitLogMessage(line.message, message) ? message : Message{"", line.message});
    }
    return messages;
}

std::vector<std::string> FaultRun::CallsOf(const std::vector<std::string>& names) const {
    std::vector<std::string> texts;
    for (const scripted::Call& call : calls) {
        for (const std::string& name : names) {
            if (call.text.compare(0, name.size() + 1, name + "(") == 0) {
                texts.push_back(call.text);
            }
        }
    }
    return texts;
}

std::string ChangesOutsideItsPlaces(const sandbox::TreeSnapshot& before, const sandbox::TreeSnapshot& after,
                                    const std::vector<std::string>& removable) {
    std::string offending;
    auto allowed = [&](const std::string& path, bool removed) {
        for (const char* place : {NORMAL_OUT, EARLY_OUT}) {
            if (IsBelow(path, place)) {
                return true;
            }
        }
        for (const char* place : {REASON_OUT, FLAGS_OUT}) {
            if (IsAtOrBelow(path, place)) {
                return true;
            }
        }
        for (const std::string& dir : removable) {
            if (removed && IsAtOrBelow(path, dir)) {
                return true;
            }
        }
        return false;
    };
    for (const auto& [path, entry] : before) {
        auto found = after.find(path);
        if (found == after.end() ? !allowed(path, true) : found->second != entry && !allowed(path, false)) {
            offending += (found == after.end() ? "removed: " : "changed: ") + path + "\n";
        }
    }
    for (const auto& [path, entry] : after) {
        if (!before.count(path) && !allowed(path, false)) {
            offending += "made: " + path + "\n";
        }
    }
    return offending;
}

void RemoveSubtree(sandbox::TreeSnapshot& tree, const std::string& path) {
    for (auto entry = tree.begin(); entry != tree.end();) {
        entry = IsAtOrBelow(entry->first, path) ? tree.erase(entry) : std::next(entry);
    }
}

Json::Value MergeScript(const Json::Value& base, const Json::Value& overrides) {
    Json::Value merged = base;
    for (const std::string& name : overrides.getMemberNames()) {
        const Json::Value& value = overrides[name];
        if (value.isObject() && merged[name].isObject()) {
            for (const std::string& key : value.getMemberNames()) {
                merged[name][key] = value[key];
            }
        } else {
            merged[name] = value;
        }
    }
    return merged;
}

Json::Value ParseJson(const std::string& text) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
        ADD_FAILURE() << "script does not parse: " << errors << "\n" << text;
        std::abort();
    }
    return value;
}

FaultSandbox::FaultSandbox() : state_("vela-faults"), box_(state_.Path()) {
    box_.BindReadOnly(VELA_BUILD_DIR);
    box_.SetEnv("LD_PRELOAD", sandbox::PreloadList(VELA_SCRIPTED_LIBRARY));
    box_.SetEnv("VELA_SCRIPT", Sandbox::ControlPath(SCRIPT_NAME));
    box_.SetEnv("VELA_RECORD", Sandbox::ControlPath(RECORD_NAME));
}

void FaultSandbox::WriteScript(const Json::Value& script) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    std::ofstream(box_.ControlHostPath(SCRIPT_NAME)) << Json::writeString(writer, script);
}

FaultRun FaultSandbox::Run(Mounts mounts) {
    FaultRun run;
    run.before = box_.SnapshotPrivateTrees();
    std::remove(box_.ControlHostPath(RECORD_NAME).c_str());

    const std::vector<std::string> bwrap =
        box_.CommandLine({VELA_GENERATOR, Sandbox::NORMAL_DIR, Sandbox::EARLY_DIR, Sandbox::LATE_DIR});
    sandbox::SyslogSocket log(LogSocketOf(bwrap));
    sandbox::ChildOutcome outcome = sandbox::RunChild(WithMounts(mounts, box_, bwrap), TIME_LIMIT,
                                                      {log.Fd(), [&] { log.Drain(run.result.log); }});
    run.result.timedOut = outcome.timedOut;
    run.result.exitStatus = outcome.exitStatus;
    run.result.termSignal = outcome.termSignal;
    run.result.out = std::move(outcome.out);
    run.result.err = std::move(outcome.err);
    run.calls = scripted::RecordedCalls(box_.ControlHostPath(RECORD_NAME));
    run.after = box_.SnapshotPrivateTrees();

    EXPECT_FALSE(run.result.timedOut);
    EXPECT_EQ(run.result.out, "");
    EXPECT_EQ(run.result.err, "");
    ExpectWellFormedLog(run.result.log);
    return run;
}

}  // namespace faults
