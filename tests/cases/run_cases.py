#!/usr/bin/env python3
"""Runs the generator's cases: each case of a case file runs the built generator
in a sandbox on a private tree, with the scripted platform preloaded, and
compares its exit status, stderr, the whole tree after, its syslog lines and
the platform calls it watches with what the case expects.

usage: run_cases.py --build DIR [--preload-first LIB] [-k TEXT] CASEFILE...
  -k TEXT   run only the cases whose title contains TEXT
Prints one line per failing case with its differences, then "N passed, N failed".

A case file: lines before the first "case" belong to every case of the file.
  case TITLE            starts a case
  args [ARG]...         the generator's arguments (default: the three directories)
  has PATH ENTRY         the tree before (besides the three generator directories)
  lacks PATH            PATH (with all below) absent before
  mount ro|full PATH    PATH read-only, or full from the start
  + PATH ENTRY           the tree after holds this (parent directories 0755 implied)
  - PATH                the tree after lacks PATH and all below
  exit N                the exit status (default 0)
  stderr TEXT           one line of standard error (default: none)
  log FILE: MESSAGE     one syslog line at LOG_ERR, in any order (default: none)
  call LABEL CALL[ ; CALL]...  the watched calls of one process, LABEL, in order; processes
                        in the order of their tree (a parent, then its children as forked)
  watch NAME...         also watch these operations (no call of them: none made)
  anything else         a line of the scripted platform's table
ENTRY: "/ [MODE]" a directory, "[MODE] = TEXT" a file (\\n escapes), "-> TARGET"
a link, "fifo". $GENERATOR in stderr stands for the generator's path.
"""
import argparse
import difflib
import os
import re
import shutil
import stat
import sys
import tempfile

sys.dont_write_bytecode = True  # nothing lands in the source tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts"))
import vela_sandbox  # noqa: E402

GENERATOR_DIRS = vela_sandbox.GENERATOR_DIRS
PRIVATE = vela_sandbox.PRIVATE_PATHS + ["/etc"]
DIRECTIVES = {"case", "args", "has", "lacks", "mount", "+", "-", "exit", "stderr", "log", "call", "watch"}
TABLE = {"units", "reason", "support", "default", "packed", "belongs", "carries", "status", "changed", "enable",
         "disable", "type", "path", "normalized", "section", "link", "touch", "exec", "fork", "delay"}
LOG_LINE = re.compile(r"<11> vela-system-generator: ([\w.-]+):\d+ velasystemd: (.*)", re.S)


def read_cases(path, keywords=DIRECTIVES | TABLE):
    """The cases of a case file: each a title and its (keyword, rest) lines,
    those before the first "case" first."""
    common, cases = [], []
    for line in open(path, encoding="utf-8"):
        line = line.rstrip("\n")
        if not line.strip() or line.startswith("#"):
            continue
        word, _, rest = line.partition(" ")
        if word not in keywords:
            raise SystemExit(f"{path}: unknown keyword in: {line}")
        if word == "case":
            cases.append({"title": rest, "lines": list(common)})
        (cases[-1]["lines"] if cases else common).append((word, rest))
    return cases


def unescape(text):
    return text.encode("latin-1", "backslashreplace").decode("unicode_escape")


def parse_entry(entry):
    """The canonical form of an entry: "dir MODE", "file MODE = TEXT", "-> TARGET", "fifo"."""
    if entry.startswith("->"):
        return "-> " + entry[3:]
    if entry == "fifo":
        return entry
    if entry.startswith("/"):
        return "dir " + (entry[2:] or "0755")
    mode, _, text = entry.partition("=")
    return f"file {mode.strip() or '0644'} = " + unescape(text[1:]).encode("unicode_escape").decode()


def split_entry(rest):
    """ "PATH ENTRY" into the path and the canonical entry; a path ending in "/" is a directory."""
    match = re.match(r"(\S+?)(/?)(?: (.*))?$", rest)
    path, slash, entry = unescape(match[1]), match[2], match[3] or ""
    return path, parse_entry(("/ " + entry).strip() if slash else entry)


def snapshot(root):
    tree = {}
    for directory, dirs, files in os.walk(root):
        for name in dirs + files:
            full = os.path.join(directory, name)
            info = os.lstat(full)
            mode = f"{stat.S_IMODE(info.st_mode):04o}"
            if stat.S_ISLNK(info.st_mode):
                entry = "-> " + os.readlink(full)
            elif stat.S_ISDIR(info.st_mode):
                entry = "dir " + mode
            elif stat.S_ISREG(info.st_mode):
                entry = f"file {mode} = " + open(full, "rb").read().decode("latin-1").encode("unicode_escape").decode()
            else:
                entry = "fifo"
            tree[full[len(root):]] = entry
    return tree


def remove(tree, path):
    for key in [k for k in tree if k == path or k.startswith(path + "/")]:
        del tree[key]


def add(tree, path, entry):
    parent = os.path.dirname(path)
    if parent != "/" and parent not in tree:
        add(tree, parent, "dir 0755")
    tree[path] = entry


def prepare(root, lines):
    for path in PRIVATE + GENERATOR_DIRS:
        os.makedirs(root + path, exist_ok=True)
    for word, rest in lines:
        if word == "lacks":
            (shutil.rmtree if os.path.isdir(root + rest) else os.remove)(root + rest)
        elif word == "has":
            path, entry = split_entry(rest)
            os.makedirs(os.path.dirname(root + path), exist_ok=True)
            if entry.startswith("-> "):
                os.symlink(entry[3:], root + path)
            elif entry == "fifo":
                os.mkfifo(root + path)
            elif entry.startswith("dir "):
                os.makedirs(root + path, exist_ok=True)
                os.chmod(root + path, int(entry[4:], 8))
            else:
                mode, _, text = entry[5:].partition(" = ")
                with open(root + path, "wb") as file:
                    file.write(unescape(text).encode("latin-1"))
                os.chmod(root + path, int(mode, 8))


def process_calls(record, watched):
    """The watched calls of each process, one line per process, in the order of
    the process tree: a parent, then each child (in the order forked) with its own."""
    calls, parents = {}, {}
    for line in open(record, encoding="utf-8", errors="backslashreplace") if os.path.exists(record) else []:
        pid, parent, text = line.rstrip("\n").split(" ", 2)
        parents.setdefault(int(pid), int(parent))
        if text.split("(")[0] in watched:
            calls.setdefault(int(pid), []).append(text)

    def lineage(pid):
        return lineage(parents[pid]) + [pid] if pid in parents else []
    return [" ; ".join(calls[pid]) for pid in sorted(calls, key=lineage)]


def differences(what, expected, actual):
    if expected == actual:
        return []
    changed = [line for line in difflib.ndiff(expected, actual) if line[:1] in "-+"]
    return [f"  {what}: {line[:1]} {line[2:]}" for line in changed]


def run_case(case, options, work):
    lines = case["lines"]
    root, control = work + "/root", work + "/control"
    os.makedirs(control)
    prepare(root, lines)
    before = snapshot(root)
    with open(control + "/table", "w", encoding="utf-8") as table:
        table.writelines(f"{word} {rest}\n" for word, rest in lines if word not in DIRECTIVES)
    generator = os.path.join(options.build, "generator", "vela-system-generator")
    args = next(([] if not rest else rest.split(" ") for word, rest in lines if word == "args"), GENERATOR_DIRS)
    # Named through a link of its own: LD_PRELOAD cannot hold a path with a blank.
    os.symlink(os.path.join(options.build, "tests", "scripted", "libvelascripted.so"), control + "/scripted.so")
    preload = [options.preload_first] if options.preload_first else []
    env = {"LD_PRELOAD": " ".join(preload + ["/.vela-test/scripted.so"]),
           "VELA_TABLE": "/.vela-test/table", "VELA_RECORD": "/.vela-test/record"}
    remounts = [tuple(rest.split(" ", 1)) for word, rest in lines if word == "mount"]
    status, _, err, log = vela_sandbox.run(root, [generator] + [unescape(a) for a in args], PRIVATE,
                                           [options.build], control, env, remounts, timeout=300)
    expected = dict(before)
    for word, rest in lines:
        if word == "+":
            add(expected, *split_entry(rest))
        elif word == "-":
            remove(expected, unescape(rest))
    calls = {}
    watched = {name for word, rest in lines if word == "watch" for name in rest.split()}
    for word, rest in lines:
        if word == "call":
            label, _, texts = rest.partition(" ")
            calls.setdefault(label, []).extend(texts.split(" ; "))
            watched.update(text.split("(")[0] for text in texts.split(" ; "))
    after = snapshot(root)
    return (differences("exit", [next((r for w, r in lines if w == "exit"), "0")], [str(status)])
            + differences("stderr", [r for w, r in lines if w == "stderr"],
                          err.replace(generator, "$GENERATOR").splitlines())
            + differences("tree", sorted(f"{p} {e}" for p, e in expected.items()),
                          sorted(f"{p} {e}" for p, e in after.items()))
            + differences("log", sorted(r for w, r in lines if w == "log"),
                          sorted(LOG_LINE.sub(r"\1: \2", line) for line in log))
            + differences("calls", [" ; ".join(c) for c in calls.values()],
                          process_calls(control + "/record", watched)))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--preload-first", default="")
    parser.add_argument("-k", default="")
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    os.umask(0o022)
    passed = failed = 0
    for path in options.files:
        for case in read_cases(path):
            if options.k not in case["title"]:
                continue
            with tempfile.TemporaryDirectory(prefix="vela-case-", dir="/dev/shm") as work:
                problems = run_case(case, options, work)
            if problems:
                failed += 1
                print(f"FAIL {os.path.basename(path)}: {case['title']}\n" + "\n".join(problems))
            else:
                passed += 1
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
