/* floor: the least a program can do to leave what the generator leaves. It
 * makes the same processes (five task children at once, one more child per
 * service with a reason) and the same directories, links and files, but reads
 * what to make from a plan that was worked out beforehand, with no library
 * behind it. The benchmark measures the generator against it.
 *
 * With --read it first reads the input every generator on this platform must
 * read, once and as cheaply as a C program can, and discards it: each PATH
 * that is a file is read whole; each that is a directory is listed, its files
 * read, its links' targets read and its *.wants/ and *.requires/ directories
 * listed. That floor is the yardstick for the reading a generator cannot skip.
 *
 * usage: floor [--read PATH]... PLAN NORMAL-DIR EARLY-DIR LATE-DIR
 *
 * The plan's lines (fields separated by tabs) are described in
 * make_scenario.cpp. Failures are reported on standard error; the benchmark
 * compares what both programs left, so a floor that makes less is caught. */
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#define REASON_CONF_PARENT "/run/velasystemd"
#define REASON_CONF_DIR "/run/velasystemd/reason-conf/"
#define REASON_CONF_FILE "/run/velasystemd/reason-conf/vela-reason.conf"
#define REASON_CONF_NAME "vela-reason.conf"
#define PACK_CONF_NAME "vela-pack.conf"
#define CHECK_COMMAND "/usr/vela/bin/velasystemctl check-service-reason %n"
#define MAX_FIELDS 4
#define READ_OPTION "--read"
#define MAX_READ_PATHS 16
#define LISTING_SIZE 32768
#define CONTENT_SIZE 65536

struct line {
    char op;
    char* field[MAX_FIELDS];
};

struct plan {
    const char* note; /* first line of every drop-in, or NULL */
    struct line* lines;
    size_t count;
};

static const char* normal_dir;
static const char* early_dir;

static void complain(const char* what, const char* path) {
    fprintf(stderr, "floor: %s %s: %s\n", what, path, strerror(errno));
}

static char* read_whole_file(const char* path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (fd < 0 || fstat(fd, &info) < 0) {
        complain("cannot read", path);
        exit(1);
    }
    char* text = malloc((size_t)info.st_size + 1);
    size_t done = 0;
    while (text && done < (size_t)info.st_size) {
        ssize_t got = read(fd, text + done, (size_t)info.st_size - done);
        if (got <= 0) {
            complain("cannot read", path);
            exit(1);
        }
        done += (size_t)got;
    }
    close(fd);
    if (!text) exit(1);
    text[done] = '\0';
    return text;
}

/* What --read reads goes to these and is overwritten by what follows. */
struct input_buffers {
    char listing[LISTING_SIZE];
    char link_listing[LISTING_SIZE];
    char content[CONTENT_SIZE];
};

static int has_suffix(const char* name, const char* suffix) {
    size_t length = strlen(name), suffix_length = strlen(suffix);
    return length > suffix_length && strcmp(name + length - suffix_length, suffix) == 0;
}

static void read_file_at(int directory_fd, const char* name, struct input_buffers* buffers) {
    int fd = openat(directory_fd, name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    while (read(fd, buffers->content, sizeof buffers->content) > 0) {
    }
    close(fd);
}

/* Lists the directory `fd` (and closes it), calling visit() for each entry
 * but "." and "..", with the listing read into `listing`. */
static void list_directory(int fd, char* listing, void (*visit)(int, const struct dirent64*, struct input_buffers*),
                           struct input_buffers* buffers) {
    ssize_t got;
    while ((got = getdents64(fd, listing, LISTING_SIZE)) > 0) {
        for (ssize_t at = 0; at < got;) {
            const struct dirent64* entry = (const struct dirent64*)(listing + at);
            at += entry->d_reclen;
            if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
            if (visit) visit(fd, entry, buffers);
        }
    }
    close(fd);
}

static void visit_unit_entry(int directory_fd, const struct dirent64* entry, struct input_buffers* buffers) {
    if (entry->d_type == DT_REG) {
        read_file_at(directory_fd, entry->d_name, buffers);
    } else if (entry->d_type == DT_LNK) {
        (void)readlinkat(directory_fd, entry->d_name, buffers->content, sizeof buffers->content);
    } else if (entry->d_type == DT_DIR && (has_suffix(entry->d_name, ".wants") || has_suffix(entry->d_name, ".requires"))) {
        int fd = openat(directory_fd, entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd >= 0) list_directory(fd, buffers->link_listing, NULL, buffers);
    }
}

/* Reads the input at `path`; a path that does not exist is no input. */
static void read_input(const char* path, struct input_buffers* buffers) {
    int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        list_directory(fd, buffers->listing, visit_unit_entry, buffers);
    } else if (errno == ENOTDIR) {
        read_file_at(AT_FDCWD, path, buffers);
    }
}

/* Splits the plan text in place into lines and fields. */
static struct plan parse_plan(char* text) {
    struct plan plan = {NULL, NULL, 0};
    size_t capacity = 0;
    for (char* cursor = text; *cursor;) {
        char* end = strchr(cursor, '\n');
        if (end) *end = '\0';
        struct line line = {cursor[0], {NULL, NULL, NULL, NULL}};
        char* field = strchr(cursor, '\t');
        for (int i = 0; field && i < MAX_FIELDS; ++i) {
            *field++ = '\0';
            line.field[i] = field;
            field = strchr(field, '\t');
        }
        if (line.op == 'H') {
            plan.note = line.field[0];
        } else {
            if (plan.count == capacity) {
                capacity = capacity ? 2 * capacity : 1024;
                plan.lines = realloc(plan.lines, capacity * sizeof *plan.lines);
                if (!plan.lines) exit(1);
            }
            plan.lines[plan.count++] = line;
        }
        if (!end) break;
        cursor = end + 1;
    }
    return plan;
}

static void make_dir(const char* path) {
    if (mkdir(path, 0755) < 0 && errno != EEXIST) complain("cannot mkdir", path);
}

static void make_link(const char* target, const char* path) {
    if (symlink(target, path) < 0) complain("cannot link", path);
}

static void write_drop_in(const struct plan* plan, const char* path, const char* body) {
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        complain("cannot create", path);
        return;
    }
    char text[8192];
    int length = snprintf(text, sizeof text, "%s%s%s", plan->note ? plan->note : "", plan->note ? "\n" : "", body);
    if (length < 0 || (size_t)length >= sizeof text || write(fd, text, (size_t)length) != length) {
        complain("cannot write", path);
    }
    close(fd);
}

/* The shared reason drop-in, then one child per service that links it. */
static void add_reason_drop_ins(const struct plan* plan) {
    unlink(REASON_CONF_FILE);
    make_dir(REASON_CONF_PARENT);
    make_dir(REASON_CONF_DIR);
    write_drop_in(plan, REASON_CONF_FILE, "[Service]\nExecStartPre=" CHECK_COMMAND "\n");
    char path[4096];
    for (size_t i = 0; i < plan->count; ++i) {
        const struct line* line = &plan->lines[i];
        if (line->op != 'R') continue;
        if (fork() == 0) {
            snprintf(path, sizeof path, "%s/%s.d/", early_dir, line->field[0]);
            make_dir(path);
            strncat(path, REASON_CONF_NAME, sizeof path - strlen(path) - 1);
            make_link(REASON_CONF_FILE, path);
            _exit(0);
        }
    }
    while (waitpid(-1, NULL, 0) > 0) {
    }
}

static void mask_units(const struct plan* plan) {
    char path[4096];
    for (size_t i = 0; i < plan->count; ++i) {
        const struct line* line = &plan->lines[i];
        if (line->op != 'M') continue;
        snprintf(path, sizeof path, "%s/%s", early_dir, line->field[0]);
        make_link("/dev/null", path);
    }
}

static void add_wants_link(const char* target, const char* unit, const char* unit_path) {
    char path[4096];
    snprintf(path, sizeof path, "%s/%s.wants/", normal_dir, target);
    make_dir(path);
    strncat(path, unit, sizeof path - strlen(path) - 1);
    make_link(unit_path, path);
}

static void add_stay_alive_links(const struct plan* plan) {
    for (size_t i = 0; i < plan->count; ++i) {
        const struct line* line = &plan->lines[i];
        if (line->op == 'S') add_wants_link(line->field[0], line->field[1], line->field[2]);
    }
}

static void add_pack_drop_ins(const struct plan* plan) {
    char path[4096];
    char body[8192];
    for (size_t i = 0; i < plan->count; ++i) {
        const struct line* line = &plan->lines[i];
        if (line->op == 'P') {
            snprintf(path, sizeof path, "%s/%s.d/", normal_dir, line->field[0]);
            make_dir(path);
            strncat(path, PACK_CONF_NAME, sizeof path - strlen(path) - 1);
            snprintf(body, sizeof body, "[Unit]\nPartOf=%s\nReloadPropagatedFrom=%s\n", line->field[1],
                     line->field[1]);
            write_drop_in(plan, path, body);
        } else if (line->op == 'W') {
            add_wants_link(line->field[0], line->field[1], line->field[2]);
        }
    }
}

/* What the platform makes when it enables a unit: its directory with the
 * parents that are missing, and the link. */
static void enable_default_units(const struct plan* plan) {
    char path[4096];
    for (size_t i = 0; i < plan->count; ++i) {
        const struct line* line = &plan->lines[i];
        if (line->op != 'E') continue;
        snprintf(path, sizeof path, "%s", line->field[0]);
        char* slash = strrchr(path, '/');
        *slash = '\0';
        make_dir(path);
        *slash = '/';
        make_dir(path);
        snprintf(path, sizeof path, "%s/%s", line->field[0], line->field[1]);
        make_link(line->field[2], path);
    }
}

int main(int argc, char* argv[]) {
    const char* inputs[MAX_READ_PATHS];
    int input_count = 0, first = 1;
    for (; first + 1 < argc && strcmp(argv[first], READ_OPTION) == 0 && input_count < MAX_READ_PATHS; first += 2) {
        inputs[input_count++] = argv[first + 1];
    }
    if (argc - first != 4) {
        fprintf(stderr, "usage: %s [--read PATH]... PLAN NORMAL-DIR EARLY-DIR LATE-DIR\n", argv[0]);
        return 1;
    }
    normal_dir = argv[first + 1];
    early_dir = argv[first + 2];
    static struct input_buffers buffers;
    for (int i = 0; i < input_count; ++i) read_input(inputs[i], &buffers);
    const struct plan plan = parse_plan(read_whole_file(argv[first]));
    void (*const tasks[])(const struct plan*) = {add_reason_drop_ins, mask_units, add_stay_alive_links,
                                                 add_pack_drop_ins, enable_default_units};
    for (size_t i = 0; i < sizeof tasks / sizeof tasks[0]; ++i) {
        if (fork() == 0) {
            tasks[i](&plan);
            _exit(0);
        }
    }
    while (waitpid(-1, NULL, 0) > 0) {
    }
    return 0;
}
