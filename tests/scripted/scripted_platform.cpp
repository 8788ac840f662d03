// The scripted test platform: both platform libraries in one, preloaded into
// the built generator. It answers from the table named by $VELA_TABLE, one
// line per answer, "OPERATION [KEY] ANSWER..." (blank-separated, \xHH escapes):
//   units|reason NAME...          the two listings (missing: empty)
//   support|default UNIT yes|no   flag queries (missing: fail with 0x700)
//   packed|belongs|carries UNIT NAME...   list queries (missing: fail with 0x700)
//   status UNIT N (missing: 0)    changed UNIT (missing: unchanged)
//   enable|disable UNIT no|FAILURE        (missing: success)
//   type|path|normalized NAME TEXT        path !throw makes UnitPathGet throw
//   section DIR+FILE no|FAILURE   link DROPINDIR no|FAILURE   touch PATH FAILURE
//   exec PROGRAM STATUS           fork N|* FAILURE (N: the process's Nth fork)
//   delay OPERATION MS            sleep after every call of the operation
// FAILURE is !CODE[@FILE:LINE]: the call sets the error state and fails; the
// answers after it go into the out-parameter first. AddUnitSection,
// LinkVelaReason and VLIBCFileTouch otherwise have their real effects.
// Every call is appended to $VELA_RECORD as "<pid> <parent pid> Name(arg, arg)".
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core_library.h"
#include "unit_library.h"

namespace {

using Tokens = std::vector<std::string>;

constexpr int CODE_NO_POLICY = 0x700;
const char* const OWN_FILE = "scripted";
const std::string UNIT_DIR = "/usr/lib/systemd/system/";

struct ErrorState {
    int code = 0;
    std::string file = OWN_FILE;
    int line = 0;
};

// The answers, held compactly: every child of the generator inherits them, and
// a benchmark's table has tens of thousands of lines. Each line's decoded
// words lie back to back in `pool`; an entry names its key ("OPERATION KEY")
// and its answer words there. Entries are sorted by key; of equal keys the
// last line wins.
struct Span {
    uint32_t offset, length;
};
struct Entry {
    Span key;
    uint32_t first, count;  // the answer: words[first, first + count)
};
struct Table {
    std::string pool;
    std::vector<Span> words;
    std::vector<Entry> entries;
    std::string_view View(Span span) const { return std::string_view(pool).substr(span.offset, span.length); }
};

struct Platform {
    Table answers;
    ErrorState error;
    int forks = 0;
    int record = -1;
    bool delays = false;
};

std::string Decode(const std::string& token) {
    std::string text;
    for (size_t i = 0; i < token.size(); ++i) {
        bool escape = token.compare(i, 2, "\\x") == 0 && i + 4 <= token.size();
        text += escape ? static_cast<char>(std::stoi(token.substr(i + 2, 2), nullptr, 16)) : token[i];
        i += escape ? 3 : 0;
    }
    return text;
}

Span Append(std::string& pool, const std::string& text) {
    Span span{static_cast<uint32_t>(pool.size()), static_cast<uint32_t>(text.size())};
    pool += text;
    return span;
}

Platform Load() {
    Platform platform;
    Table& answers = platform.answers;
    std::ifstream table(std::getenv("VELA_TABLE") ? std::getenv("VELA_TABLE") : "/dev/null");
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        Tokens tokens;
        for (std::string word; words >> word;) tokens.push_back(Decode(word));
        if (tokens.empty()) continue;
        // The two listings have no key: their answer follows the operation.
        bool keyed = tokens.size() > 1 && tokens[0] != "units" && tokens[0] != "reason";
        platform.delays = platform.delays || tokens[0] == "delay";
        Entry entry{Append(answers.pool, tokens[0] + (keyed ? " " + tokens[1] : "")),
                    static_cast<uint32_t>(answers.words.size()), 0};
        for (auto word = tokens.begin() + (keyed ? 2 : 1); word != tokens.end(); ++word, ++entry.count) {
            answers.words.push_back(Append(answers.pool, *word));
        }
        answers.entries.push_back(entry);
    }
    std::stable_sort(answers.entries.begin(), answers.entries.end(), [&](const Entry& a, const Entry& b) {
        return answers.View(a.key) < answers.View(b.key);
    });
    if (const char* record = std::getenv("VELA_RECORD")) {
        platform.record = open(record, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    }
    return platform;
}

// The answer of the last line with this key; none when no line has it.
std::optional<Tokens> Answer(const Platform& platform, const std::string& key) {
    const Table& table = platform.answers;
    auto after = std::upper_bound(table.entries.begin(), table.entries.end(), std::string_view(key),
                                  [&](std::string_view k, const Entry& e) { return k < table.View(e.key); });
    if (after == table.entries.begin() || table.View((after - 1)->key) != key) return std::nullopt;
    Tokens answer;
    for (uint32_t i = 0; i < (after - 1)->count; ++i) answer.emplace_back(table.View(table.words[(after - 1)->first + i]));
    return answer;
}

// Records the call in one write (whole lines from every process), then waits
// as the table says.
Platform& Call(const std::string& name, const Tokens& args = {}) {
    static Platform platform = Load();
    if (platform.record >= 0) {
        std::string line = std::to_string(getpid()) + " " + std::to_string(getppid()) + " " + name + "(";
        for (size_t i = 0; i < args.size(); ++i) line += (i ? ", " : "") + args[i];
        line += ")\n";
        if (write(platform.record, line.data(), line.size()) < 0) std::abort();
    }
    if (platform.delays) {
        if (std::optional<Tokens> delay = Answer(platform, "delay " + name)) usleep(std::stoi(delay->at(0)) * 1000);
    }
    return platform;
}

bool IsFailure(const std::optional<Tokens>& answer) { return answer && !answer->empty() && answer->front()[0] == '!'; }

// Sets the error state from "!CODE[@FILE:LINE]" and returns false.
bool Fail(Platform& platform, const std::string& failure) {
    size_t at = failure.find('@'), colon = failure.rfind(':');
    platform.error = {static_cast<int>(std::strtol(failure.c_str() + 1, nullptr, 0)),
                      at == std::string::npos ? OWN_FILE : failure.substr(at + 1, colon - at - 1),
                      at == std::string::npos ? 0 : std::atoi(failure.c_str() + colon + 1)};
    return false;
}

bool FailWithErrno(Platform& platform) {
    platform.error = {errno, OWN_FILE, 0};
    return false;
}

// A list query: the names, or a failure with the names after it filled in.
bool ListAnswer(const std::string& name, const std::string& op, const std::string& key,
                std::vector<std::string>& out, bool keyed = true) {
    Platform& platform = Call(name, {key});
    std::optional<Tokens> answer = Answer(platform, keyed ? op + " " + key : op);
    if (!answer) return !keyed || Fail(platform, "!" + std::to_string(CODE_NO_POLICY));
    bool failed = IsFailure(answer);
    out.insert(out.end(), answer->begin() + failed, answer->end());
    return !failed || Fail(platform, answer->front());
}

bool FlagAnswer(const std::string& name, const std::string& op, const std::string& unit, bool& out) {
    Platform& platform = Call(name, {unit});
    std::optional<Tokens> answer = Answer(platform, op + " " + unit);
    if (!answer || answer->empty()) return Fail(platform, "!" + std::to_string(CODE_NO_POLICY));
    bool failed = IsFailure(answer);
    if (answer->size() > size_t(failed)) out = answer->at(failed) == "yes";
    return !failed || Fail(platform, answer->front());
}

// An operation that succeeds unless the table says "no" or a failure.
bool Outcome(Platform& platform, const std::optional<Tokens>& answer) {
    if (IsFailure(answer)) return Fail(platform, answer->front());
    return !answer || answer->empty() || answer->front() != "no";
}

std::string TextAnswer(const Platform& platform, const std::string& op, const std::string& key,
                       const std::string& otherwise) {
    std::optional<Tokens> answer = Answer(platform, op + " " + key);
    if (answer && !answer->empty() && answer->front() == "!throw") throw std::runtime_error("no unit file");
    return answer && !answer->empty() ? answer->front() : otherwise;
}

std::string SuffixOf(const std::string& name) {
    size_t dot = name.rfind('.');
    return dot == std::string::npos ? "" : name.substr(dot + 1);
}

bool MakeDirectories(const std::string& dir) {
    for (size_t slash = dir.find('/', 1); slash != std::string::npos; slash = dir.find('/', slash + 1)) {
        struct stat info;
        std::string path = dir.substr(0, slash);
        int made = mkdir(path.c_str(), 0755), error = errno;
        if (made < 0 && (stat(path.c_str(), &info) < 0 || !S_ISDIR(info.st_mode))) return (errno = error, false);
    }
    return true;
}

std::string C(const char* text) { return text ? text : "null"; }

}  // namespace

bool VELASystemdListUnits(std::vector<std::string>& units, const std::string& selector) {
    return ListAnswer("VELASystemdListUnits", "units", selector, units, false);
}
bool VELASystemdIsSupportGet(const std::string& unit, bool& supported) {
    return FlagAnswer("VELASystemdIsSupportGet", "support", unit, supported);
}
bool VELASystemdIsDefaultEnableGet(const std::string& unit, bool& enabled) {
    return FlagAnswer("VELASystemdIsDefaultEnableGet", "default", unit, enabled);
}
bool VELASystemdPackedInGet(const std::string& unit, std::vector<std::string>& packs) {
    return ListAnswer("VELASystemdPackedInGet", "packed", unit, packs);
}
bool VELASystemdBelongsToGet(const std::string& unit, std::vector<std::string>& targets) {
    return ListAnswer("VELASystemdBelongsToGet", "belongs", unit, targets);
}
bool VELASystemdTargetCarriesGet(const std::string& target, std::vector<std::string>& units) {
    return ListAnswer("VELASystemdTargetCarriesGet", "carries", target, units);
}
int VELASystemdEnableStatusGetInGenerator(const std::string& unit) {
    return std::stoi(TextAnswer(Call("VELASystemdEnableStatusGetInGenerator", {unit}), "status", unit, "0"));
}
bool VELASystemdEnableInGenerator(const std::string& unit) {
    Platform& platform = Call("VELASystemdEnableInGenerator", {unit});
    return Outcome(platform, Answer(platform, "enable " + unit));
}
bool VELASystemdDisableInGenerator(const std::string& unit) {
    Platform& platform = Call("VELASystemdDisableInGenerator", {unit});
    return Outcome(platform, Answer(platform, "disable " + unit));
}

namespace VELA {
namespace Systemd {

std::string NormalizedUnitNameGet(const std::string& name) {
    bool typed = SuffixOf(name) == "service" || SuffixOf(name) == "target" || SuffixOf(name) == "socket";
    return TextAnswer(Call("VELA::Systemd::NormalizedUnitNameGet", {name}), "normalized", name, typed ? name : name + ".service");
}
bool IsEnableStatusChanged(const std::string& unit) {
    return Answer(Call("VELA::Systemd::IsEnableStatusChanged", {unit}), "changed " + unit).has_value();
}
std::string UnitTypeGet(const std::string& unit) {
    return TextAnswer(Call("VELA::Systemd::UnitTypeGet", {unit}), "type", unit, SuffixOf(unit));
}
std::string UnitPathGet(const std::string& unit) {
    return TextAnswer(Call("VELA::Systemd::UnitPathGet", {unit}), "path", unit, UNIT_DIR + unit);
}
bool ListServicesWithReason(std::vector<std::string>& services) {
    Platform& platform = Call("VELA::Systemd::ListServicesWithReason");
    std::optional<Tokens> answer = Answer(platform, "reason");
    if (answer) services.insert(services.end(), answer->begin() + IsFailure(answer), answer->end());
    return !IsFailure(answer) || Fail(platform, answer->front());
}

bool AddUnitSection(const std::string& dir, const std::string& fileName, const std::string& section,
                    const std::map<std::string, std::string>& settings) {
    std::string text = "[" + section + "]\n", shown;
    for (const auto& [key, value] : settings) {
        text += key + "=" + value + "\n";
        shown += (shown.empty() ? "" : ", ") + key + "=" + value;
    }
    Platform& platform = Call("VELA::Systemd::AddUnitSection", {dir, fileName, section, "{" + shown + "}"});
    if (std::optional<Tokens> answer = Answer(platform, "section " + dir + fileName)) return Outcome(platform, answer);
    std::ofstream file;
    if (MakeDirectories(dir)) file.open(dir + fileName, std::ios::trunc);
    return (file << text && file.flush()) || FailWithErrno(platform);
}

bool LinkVelaReason(const std::string& dropInDir, const std::string& reasonFile) {
    Platform& platform = Call("VELA::Systemd::LinkVelaReason", {dropInDir, reasonFile});
    if (std::optional<Tokens> answer = Answer(platform, "link " + dropInDir)) return Outcome(platform, answer);
    const std::string link = dropInDir + "vela-reason.conf";
    return (MakeDirectories(dropInDir) && symlink(reasonFile.c_str(), link.c_str()) == 0) || FailWithErrno(platform);
}

}  // namespace Systemd
}  // namespace VELA

extern "C" {

int VLIBCErrGet(void) { return Call("VLIBCErrGet").error.code; }
const char* VLIBCErrorGetFile(void) { return Call("VLIBCErrorGetFile").error.file.c_str(); }
int VLIBCErrorGetLine(void) { return Call("VLIBCErrorGetLine").error.line; }

int VLIBCProcForkEx(int options) {
    Platform& platform = Call("VLIBCProcForkEx", {std::to_string(options)});
    std::optional<Tokens> failure = Answer(platform, "fork " + std::to_string(++platform.forks));
    failure = failure ? failure : Answer(platform, "fork *");
    if (IsFailure(failure)) return Fail(platform, failure->front()) - 1;
    pid_t pid = fork();
    if (pid == 0) platform.forks = 0;
    return pid < 0 ? FailWithErrno(platform) - 1 : pid;
}

int VLIBCExec(const char* program, const char* arg1, const char* arg2, const char* arg3, const char* arg4) {
    const Platform& platform = Call("VLIBCExec", {C(program), C(arg1), C(arg2), C(arg3), C(arg4)});
    return std::stoi(TextAnswer(platform, "exec", C(program), "0"));
}

int VLIBCFileTouch(const char* path) {
    Platform& platform = Call("VLIBCFileTouch", {C(path)});
    std::optional<Tokens> answer = Answer(platform, "touch " + C(path));
    if (IsFailure(answer)) return Fail(platform, answer->front()) - 1;
    int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    return fd < 0 ? FailWithErrno(platform) - 1 : close(fd);
}

}  // extern "C"
