// The preview's command line.
#pragma once

#include <string>

namespace preview {

enum class JsonStyle { None, Pretty, Short };

struct Options {
  std::string root = "/";
  std::string generator;  // a generator binary to run instead of the target's own
  bool upgrade = false;
  bool reload = false;
  bool changes = false;
  bool verify = false;
  bool strict = false;
  std::string unit;
  JsonStyle json = JsonStyle::None;
  int timeoutSeconds = 0;
  bool help = false;
};

// Fills `options` from the arguments. On a bad argument returns false and
// sets `error` to a one-line message.
bool ParseOptions(int argc, char** argv, Options& options, std::string& error);

// The usage text, for --help.
const char* UsageText();

}  // namespace preview
