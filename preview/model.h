// What the preview learns: file-system entries and their changes, a
// generator run's outcome, the library's answers, the loader's view.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace preview {

// One path as found: its kind ('d' directory, 'f' file, 'l' link, 'o' other,
// 'w' removal recorded by the overlay, '-' absent), and for a file its
// content (or its size, when too large to show), for a link its target.
struct Entry {
  char kind = '-';
  std::string text;
  bool operator==(const Entry& other) const { return kind == other.kind && text == other.text; }
};

// Paths of the target (as seen inside it) and what lies there.
using Snapshot = std::map<std::string, Entry>;

// A path the run changed: what was there before and what is there after.
struct Change {
  std::string path;
  Entry before;
  Entry after;
  bool Added() const { return before.kind == '-' || before.kind == 'w'; }
  bool Removed() const { return after.kind == '-' || after.kind == 'w'; }
};

// How a process ended.
struct Outcome {
  bool started = false;
  bool timedOut = false;
  int exitStatus = -1;  // when it exited
  int signal = 0;       // when a signal ended it
  bool Succeeded() const { return started && !timedOut && signal == 0 && exitStatus == 0; }
};

// One run of the generator and everything it changed, sorted into kinds.
struct RunReport {
  Outcome outcome;
  std::string failure;  // why it could not be started
  std::vector<Change> masks;
  std::map<std::string, std::vector<std::string>> wants;  // target -> units linked into it
  std::vector<Change> wantsLinks;
  std::vector<Change> dropIns;
  std::vector<Change> enableLinks;
  std::vector<Change> changeMarks;
  std::vector<Change> flags;
  std::vector<std::string> programs;  // programs run, as their run-once flags tell
  std::vector<Change> legacyRemoved;
  std::vector<Change> other;
  std::vector<std::string> log;
  std::string output;  // what it wrote on stdout and stderr
};

// The platform library's answers about one unit. A failed query keeps its
// error code; "ok" false means no answer.
struct Answer {
  bool ok = false;
  int error = 0;
  std::string value;
};

struct UnitAnswers {
  std::string failure;  // the library could not be loaded
  std::vector<std::pair<std::string, Answer>> answers;  // in the order asked
};

// The platform's unit listing with each unit's file, to tell this
// generator's output from other generators'.
struct Listing {
  std::string failure;
  std::map<std::string, std::string> unitFiles;  // unit -> its file ("" when none)
};

// A difference between the live state and what a reload would leave.
struct LiveDifference {
  char sign;  // '+' a reload adds it, '-' a reload removes it
  std::string kind;
  std::string path;
  std::string text;
};

struct VerifyReport {
  bool requested = false;
  bool ran = false;
  std::string failure;
  Outcome outcome;
  std::vector<std::string> units;
  std::vector<std::string> masked;
  std::vector<std::string> warnings;
  std::string generatorLine;
};

struct Report {
  std::string target;
  std::string generator;
  std::string boot;
  std::string unit;
  std::vector<RunReport> runs;
  UnitAnswers before;  // the library's answers as the generator found them
  UnitAnswers after;   // and after its run
  bool comparedLive = false;
  std::string liveFailure;
  std::vector<LiveDifference> live;
  VerifyReport verify;
  bool strict = false;
  int timeoutSeconds = 0;
};

// The preview's exit status for a finished report.
int ExitStatusOf(const Report& report);

}  // namespace preview
