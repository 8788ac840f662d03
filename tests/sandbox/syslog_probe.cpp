// A program for the sandbox's own tests: logs each argument after the first
// as one syslog line at LOG_ERR, the way the generator does (no openlog), and
// exits with the first argument as its status.
#include <syslog.h>

#include <cstdlib>

int main(int argc, char* argv[]) {
    for (int i = 2; i < argc; ++i) {
        syslog(LOG_ERR, "%s", argv[i]);
    }
    return argc > 1 ? std::atoi(argv[1]) : 0;
}
