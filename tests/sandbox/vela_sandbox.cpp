// vela-sandbox: runs a command in a Sandbox from the shell. The command's
// output passes through; its syslog lines go to standard error or a file.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "preload.h"
#include "sandbox.h"

namespace {

constexpr int EXIT_TIMED_OUT = 124;
constexpr int EXIT_SANDBOX_FAILED = 125;
constexpr int EXIT_USAGE = 2;

const char* const USAGE =
    "usage: vela-sandbox --state DIR [option]... -- COMMAND [ARG]...\n"
    "  --state DIR          host state directory (made when missing, content kept);\n"
    "                       private path P is DIR/root/P, the control directory\n"
    "                       /.vela-test is DIR/control\n"
    "  --private PATH       make one more path private (backed by DIR/root/PATH)\n"
    "  --bind-ro PATH       show a host path read-only at the same place\n"
    "  --env NAME=VALUE     set a variable (the environment is PATH only); in a\n"
    "                       sanitizer build LD_PRELOAD gets the runtime in front\n"
    "  --units HOSTDIR[:UNITDIR]  copy unit files into UNITDIR (/etc/systemd/system)\n"
    "  --timeout SECONDS    time limit (default 30)\n"
    "  --log FILE           write the syslog lines to FILE, not standard error\n"
    "  --print-command      print the bubblewrap command line instead of running it\n"
    "Exit status: the command's; 124 past the time limit; 125 when the sandbox fails.\n";

struct Options {
    std::string stateDir;
    std::vector<std::string> privatePaths;
    std::vector<std::string> readOnlyBinds;
    std::vector<std::pair<std::string, std::string>> environment;
    std::vector<std::pair<std::string, std::string>> unitDirs;
    double timeoutSeconds = 30;
    std::string logFile;
    bool printCommand = false;
    std::vector<std::string> command;
};

[[noreturn]] void FailUsage(const std::string& why) {
    std::cerr << "vela-sandbox: " << why << "\n" << USAGE;
    std::exit(EXIT_USAGE);
}

std::pair<std::string, std::string> SplitAt(const std::string& text, char separator, const std::string& fallback) {
    size_t at = text.find(separator);
    if (at == std::string::npos) {
        return {text, fallback};
    }
    return {text.substr(0, at), text.substr(at + 1)};
}

// Applies option `name` with its `value`; false for an unknown option.
bool ApplyOption(const std::string& name, const std::string& value, Options& options) {
    if (name == "--state") {
        options.stateDir = value;
    } else if (name == "--private") {
        options.privatePaths.push_back(value);
    } else if (name == "--bind-ro") {
        options.readOnlyBinds.push_back(value);
    } else if (name == "--env") {
        if (value.find('=') == std::string::npos) {
            FailUsage("--env needs NAME=VALUE");
        }
        auto variable = SplitAt(value, '=', "");
        if (variable.first == "LD_PRELOAD") {
            variable.second = sandbox::PreloadList(variable.second);
        }
        options.environment.push_back(variable);
    } else if (name == "--units") {
        options.unitDirs.push_back(SplitAt(value, ':', sandbox::Sandbox::SYSTEM_UNIT_DIR));
    } else if (name == "--timeout") {
        options.timeoutSeconds = std::atof(value.c_str());
    } else if (name == "--log") {
        options.logFile = value;
    } else {
        return false;
    }
    return true;
}

Options ParseOptions(int argc, char* argv[]) {
    Options options;
    int i = 1;
    for (; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        const std::string name = argv[i];
        if (name == "--print-command") {
            options.printCommand = true;
            continue;
        }
        if (i + 1 >= argc || !ApplyOption(name, argv[i + 1], options)) {
            FailUsage("bad option " + name);
        }
        ++i;
    }
    options.command.assign(argv + std::min(i + 1, argc), argv + argc);
    if (options.stateDir.empty() || options.command.empty()) {
        FailUsage("--state and a command are needed");
    }
    return options;
}

sandbox::Sandbox MakeSandbox(const Options& options) {
    sandbox::Sandbox box(options.stateDir);
    for (const std::string& path : options.privatePaths) {
        box.AddPrivatePath(path);
    }
    for (const std::string& path : options.readOnlyBinds) {
        box.BindReadOnly(path);
    }
    for (const auto& [name, value] : options.environment) {
        box.SetEnv(name, value);
    }
    for (const auto& [hostDir, unitDir] : options.unitDirs) {
        box.InstallUnitFiles(hostDir, unitDir);
    }
    box.SetTimeLimit(std::chrono::milliseconds(static_cast<long>(options.timeoutSeconds * 1000)));
    return box;
}

void WriteLog(const std::vector<sandbox::SyslogLine>& log, std::ostream& out) {
    for (const sandbox::SyslogLine& line : log) {
        if (line.priority < 0) {
            out << line.raw << "\n";
        } else {
            out << "<" << line.priority << "> " << line.ident << ": " << line.message << "\n";
        }
    }
}

int RunInSandbox(const Options& options) {
    sandbox::Sandbox box = MakeSandbox(options);
    if (options.printCommand) {
        for (const std::string& arg : box.CommandLine(options.command)) {
            std::cout << arg << "\n";
        }
        return 0;
    }
    sandbox::RunResult result = box.Run(options.command);
    std::cout << result.out << std::flush;
    std::cerr << result.err << std::flush;
    if (options.logFile.empty()) {
        WriteLog(result.log, std::cerr);
    } else {
        std::ofstream logFile(options.logFile);
        WriteLog(result.log, logFile);
    }
    if (result.timedOut) {
        std::cerr << "vela-sandbox: time limit reached, command killed\n";
        return EXIT_TIMED_OUT;
    }
    return result.termSignal ? 128 + result.termSignal : result.exitStatus;
}

}  // namespace

int main(int argc, char* argv[]) {
    Options options = ParseOptions(argc, argv);
    try {
        return RunInSandbox(options);
    } catch (const std::exception& error) {
        std::cerr << "vela-sandbox: " << error.what() << "\n";
        return EXIT_SANDBOX_FAILED;
    }
}
