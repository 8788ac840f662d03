/* timed-runs: runs two or more commands in turns and times each run, inside the
 * sandbox, so that setting the sandbox up is never part of a time.
 *
 * usage: timed-runs [--runs N] [--clean DIR]... [--remove PATH]... [--compare DIR]...
 *                   --command LABEL [NAME=VALUE]... PROGRAM [ARG]... [--command ...]
 *
 * Before every run the --clean directories are emptied and the --remove paths
 * removed, so that each run starts from the same state. The commands run once
 * each untimed first; after that first run the trees below the --compare
 * directories must be the same for every command (names, types, modes, link
 * targets and file contents), or timed-runs stops with status 1 and leaves
 * the two listings in /tmp. Then N rounds follow, the commands taking turns
 * and the order reversed every other round, so that all see the same load.
 *
 * Output, one line per timed run: "LABEL ROUND WALL-NS MAX-RSS-KIB CPU-NS".
 * The wall time runs from just before the process is spawned to the moment it
 * has been reaped. The max RSS is what wait4() reports for it: the largest
 * resident set of any one process of its tree (the program itself or any
 * child it reaped), and never less than this small program's own. A command
 * that does not exit with 0 stops timed-runs with status 1. The CPU time is
 * user and system time of the program and every child it reaped.
 *
 * Each command's NAME=VALUE words are added to its own environment only. */
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

#define MAX_COMMANDS 8
#define MAX_PATHS 16

struct command {
    const char* label;
    char** argv;
    char** envp;
};

struct options {
    int rounds;
    const char* clean[MAX_PATHS];
    int clean_count;
    const char* remove[MAX_PATHS];
    int remove_count;
    const char* compare[MAX_PATHS];
    int compare_count;
    struct command commands[MAX_COMMANDS];
    int command_count;
};

static void fail(const char* what) {
    fprintf(stderr, "timed-runs: %s: %s\n", what, errno ? strerror(errno) : "failed");
    exit(1);
}

static void usage(void) {
    fprintf(stderr,
            "usage: timed-runs [--runs N] [--clean DIR]... [--remove PATH]... [--compare DIR]...\n"
            "                  --command LABEL [NAME=VALUE]... PROGRAM [ARG]... [--command ...]\n");
    exit(2);
}

/* The environment plus the command's own NAME=VALUE words. */
static char** command_environment(char** assignments, int count) {
    int inherited = 0;
    while (environ[inherited]) ++inherited;
    char** envp = calloc((size_t)(inherited + count + 1), sizeof *envp);
    if (!envp) fail("calloc");
    int used = 0;
    for (int i = 0; i < inherited; ++i) {
        int overridden = 0;
        for (int j = 0; j < count; ++j) {
            size_t name_length = (size_t)(strchr(assignments[j], '=') - assignments[j]);
            overridden |= strncmp(environ[i], assignments[j], name_length + 1) == 0;
        }
        if (!overridden) envp[used++] = environ[i];
    }
    for (int j = 0; j < count; ++j) envp[used++] = assignments[j];
    return envp;
}

/* NAME=VALUE, NAME being letters, digits and underscores. */
static int is_assignment(const char* word) {
    const char* equals = strchr(word, '=');
    if (!equals || equals == word) return 0;
    for (const char* c = word; c < equals; ++c) {
        if (!(*c == '_' || (*c >= 'A' && *c <= 'Z') || (*c >= 'a' && *c <= 'z') || (*c >= '0' && *c <= '9'))) {
            return 0;
        }
    }
    return 1;
}

static void add_path(const char** paths, int* count, const char* path) {
    if (*count == MAX_PATHS) usage();
    paths[(*count)++] = path;
}

static struct options parse_options(int argc, char* argv[]) {
    struct options options;
    memset(&options, 0, sizeof options);
    options.rounds = 11;
    int i = 1;
    for (; i < argc && strcmp(argv[i], "--command") != 0; i += 2) {
        if (i + 1 >= argc) usage();
        if (strcmp(argv[i], "--runs") == 0) {
            options.rounds = atoi(argv[i + 1]);
        } else if (strcmp(argv[i], "--clean") == 0) {
            add_path(options.clean, &options.clean_count, argv[i + 1]);
        } else if (strcmp(argv[i], "--remove") == 0) {
            add_path(options.remove, &options.remove_count, argv[i + 1]);
        } else if (strcmp(argv[i], "--compare") == 0) {
            add_path(options.compare, &options.compare_count, argv[i + 1]);
        } else {
            usage();
        }
    }
    while (i < argc) {
        /* argv[i] is "--command": the label, the assignments, the program. */
        if (i + 2 >= argc || options.command_count == MAX_COMMANDS) usage();
        struct command* command = &options.commands[options.command_count++];
        command->label = argv[i + 1];
        int first = i + 2;
        int end = first;
        while (end < argc && strcmp(argv[end], "--command") != 0) ++end;
        int assignments = 0;
        while (first + assignments < end && is_assignment(argv[first + assignments])) ++assignments;
        int words = end - first - assignments;
        if (words == 0) usage();
        command->envp = command_environment(argv + first, assignments);
        command->argv = calloc((size_t)words + 1, sizeof(char*));
        if (!command->argv) fail("calloc");
        memcpy(command->argv, argv + first + assignments, (size_t)words * sizeof(char*));
        i = end;
    }
    if (options.command_count == 0 || options.rounds < 1) usage();
    return options;
}

static int remove_entry(const char* path, const struct stat* info, int type, struct FTW* where) {
    (void)info;
    (void)type;
    (void)where;
    if (remove(path) < 0 && errno != ENOENT) fail(path);
    return 0;
}

static int remove_below(const char* path, const struct stat* info, int type, struct FTW* where) {
    return where->level == 0 ? 0 : remove_entry(path, info, type, where);
}

static void reset_state(const struct options* options) {
    for (int i = 0; i < options->remove_count; ++i) {
        errno = 0;
        if (nftw(options->remove[i], remove_entry, 32, FTW_DEPTH | FTW_PHYS) < 0 && errno != ENOENT) {
            fail(options->remove[i]);
        }
    }
    for (int i = 0; i < options->clean_count; ++i) {
        errno = 0;
        if (nftw(options->clean[i], remove_below, 32, FTW_DEPTH | FTW_PHYS) < 0) fail(options->clean[i]);
    }
}

static long long nanoseconds(const struct timespec* time) { return time->tv_sec * 1000000000LL + time->tv_nsec; }

static long long timeval_nanoseconds(const struct timeval* time) {
    return time->tv_sec * 1000000000LL + time->tv_usec * 1000LL;
}

struct outcome {
    long long wall_ns;
    long long cpu_ns;
    long max_rss_kib;
};

/* Runs `command` once and says what it cost. */
static struct outcome run_once(const struct command* command) {
    struct timespec start, end;
    struct rusage usage;
    int status;
    pid_t pid;
    clock_gettime(CLOCK_MONOTONIC, &start);
    errno = posix_spawn(&pid, command->argv[0], NULL, NULL, command->argv, command->envp);
    if (errno) fail(command->argv[0]);
    if (wait4(pid, &status, 0, &usage) != pid) fail("wait4");
    clock_gettime(CLOCK_MONOTONIC, &end);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        errno = 0;
        fprintf(stderr, "timed-runs: %s ended with status %d\n", command->label, status);
        exit(1);
    }
    struct outcome outcome = {nanoseconds(&end) - nanoseconds(&start),
                              timeval_nanoseconds(&usage.ru_utime) + timeval_nanoseconds(&usage.ru_stime),
                              usage.ru_maxrss};
    return outcome;
}

/* The listing of the compared trees goes to a file, written by a child of its
 * own, so that this process stays small and the RSS it passes on does too. */
static FILE* listing;

static int list_entry(const char* path, const struct stat* info, int type, struct FTW* where) {
    (void)type;
    (void)where;
    fprintf(listing, "%s %o", path, (unsigned)info->st_mode);
    if (S_ISLNK(info->st_mode)) {
        char target[4096];
        ssize_t length = readlink(path, target, sizeof target - 1);
        target[length < 0 ? 0 : length] = '\0';
        fprintf(listing, " -> %s", target);
    } else if (S_ISREG(info->st_mode)) {
        FILE* file = fopen(path, "r");
        int c;
        fputs(" [", listing);
        while (file && (c = fgetc(file)) != EOF) {
            if (c == '\n') {
                fputs("\\n", listing);
            } else {
                fputc(c, listing);
            }
        }
        fputc(']', listing);
        if (file) fclose(file);
    }
    fputc('\n', listing);
    return 0;
}

static void write_listing(const struct options* options, const char* path) {
    pid_t pid = fork();
    if (pid == 0) {
        char unsorted[4200];
        snprintf(unsorted, sizeof unsorted, "%s.unsorted", path);
        listing = fopen(unsorted, "w");
        if (!listing) fail(unsorted);
        for (int i = 0; i < options->compare_count; ++i) {
            if (nftw(options->compare[i], list_entry, 32, FTW_PHYS) < 0 && errno != ENOENT) fail(options->compare[i]);
        }
        fclose(listing);
        char* sort[] = {"sort", "-o", (char*)path, unsorted, NULL};
        execvp("sort", sort);
        fail("sort");
    }
    int status;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) fail("listing");
}

static int same_content(const char* a, const char* b) {
    pid_t pid = fork();
    if (pid == 0) {
        char* cmp[] = {"cmp", "-s", (char*)a, (char*)b, NULL};
        execvp("cmp", cmp);
        _exit(2);
    }
    int status;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

static void listing_path(char* path, size_t size, const char* label) {
    snprintf(path, size, "/tmp/timed-runs.%s.tree", label);
}

/* One untimed run of each command; with --compare their trees must agree. */
static void warm_up(const struct options* options) {
    char first[256], other[256];
    for (int i = 0; i < options->command_count; ++i) {
        const struct command* command = &options->commands[i];
        reset_state(options);
        (void)run_once(command);
        if (!options->compare_count) continue;
        listing_path(i ? other : first, sizeof first, command->label);
        write_listing(options, i ? other : first);
        if (i && !same_content(first, other)) {
            errno = 0;
            fprintf(stderr, "timed-runs: %s and %s leave different trees, see diff %s %s\n",
                    options->commands[0].label, command->label, first, other);
            exit(1);
        }
    }
}

int main(int argc, char* argv[]) {
    const struct options options = parse_options(argc, argv);
    setvbuf(stdout, NULL, _IOLBF, 0);
    warm_up(&options);
    for (int round = 1; round <= options.rounds; ++round) {
        for (int turn = 0; turn < options.command_count; ++turn) {
            int i = round % 2 ? turn : options.command_count - 1 - turn;
            const struct command* command = &options.commands[i];
            reset_state(&options);
            const struct outcome outcome = run_once(command);
            printf("%s %d %lld %ld %lld\n", command->label, round, outcome.wall_ns, outcome.max_rss_kib,
                   outcome.cpu_ns);
        }
    }
    reset_state(&options);
    return 0;
}
