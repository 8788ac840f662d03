// Reads the command line: long options, each value either attached with "="
// or in the next argument, as systemd's tools take them.
#include "options.h"

#include <cstdlib>

#include "constants.h"

namespace preview {

namespace {

const char USAGE[] =
    "usage: vela-generator-preview [--root DIR] [--generator PATH] [--upgrade] [--reload]\n"
    "                              [--unit NAME] [--changes] [--verify] [--strict]\n"
    "                              [--json[=pretty|short]] [--timeout SECONDS]\n"
    "Runs vela-system-generator as the service manager would, in a throwaway layer,\n"
    "and shows what it did. See vela-generator-preview(8).\n";

bool SetJsonStyle(const std::string& value, Options& options, std::string& error) {
  if (value == "pretty" || value.empty()) {
    options.json = JsonStyle::Pretty;
  } else if (value == "short") {
    options.json = JsonStyle::Short;
  } else if (value == "off") {
    options.json = JsonStyle::None;
  } else {
    error = "--json takes pretty, short or off, not \"" + value + "\"";
    return false;
  }
  return true;
}

bool SetTimeout(const std::string& value, Options& options, std::string& error) {
  char* end = nullptr;
  long seconds = std::strtol(value.c_str(), &end, 10);
  if (value.empty() || *end != '\0' || seconds < 1 || seconds > 3600) {
    error = "--timeout takes a number of seconds from 1 to 3600, not \"" + value + "\"";
    return false;
  }
  options.timeoutSeconds = static_cast<int>(seconds);
  return true;
}

bool SetFlag(const std::string& name, Options& options) {
  if (name == "--upgrade") options.upgrade = true;
  else if (name == "--reload") options.reload = true;
  else if (name == "--changes") options.changes = true;
  else if (name == "--verify") options.verify = true;
  else if (name == "--strict") options.strict = true;
  else if (name == "--help" || name == "-h") options.help = true;
  else if (name != "--no-pager") return false;  // never paged: accepted for habit's sake
  return true;
}

bool SetValue(const std::string& name, const std::string& value, Options& options, std::string& error) {
  if (value.empty()) {
    error = name + " needs a value";
    return false;
  }
  if (name == "--root") options.root = value;
  else if (name == "--generator") options.generator = value;
  else if (name == "--unit") options.unit = value;
  else if (name == "--timeout") return SetTimeout(value, options, error);
  return true;
}

bool TakesValue(const std::string& name) {
  return name == "--root" || name == "--generator" || name == "--unit" || name == "--timeout";
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
  options.timeoutSeconds = DEFAULT_TIMEOUT_SECONDS;
  for (int i = 1; i < argc; ++i) {
    std::string argument = argv[i];
    std::string::size_type equals = argument.find('=');
    std::string name = argument.substr(0, equals);
    bool attached = equals != std::string::npos;
    std::string value = attached ? argument.substr(equals + 1) : "";
    if (name == "--json") {
      if (!SetJsonStyle(value, options, error)) return false;
    } else if (TakesValue(name)) {
      if (!attached && i + 1 < argc) value = argv[++i];
      if (!SetValue(name, value, options, error)) return false;
    } else if (attached || !SetFlag(name, options)) {
      error = "unknown option \"" + argument + "\" (see --help)";
      return false;
    }
  }
  if (options.changes && options.upgrade) {
    error = "--changes compares a reload of the running boot; it cannot be an upgrade boot";
    return false;
  }
  return true;
}

const char* UsageText() { return USAGE; }

}  // namespace preview
