#!/usr/bin/env python3
"""Runs the preview's cases: each case makes an image (an overlay of the host's
root, in a private mount namespace, with the example platform and the built
generator and libraries installed where the packages put them), runs
vela-generator-preview on it, and compares what it printed and its exit status
with what the case expects. Every case also checks that the preview left no
temporary directory and no process behind.

usage: run_preview_cases.py --build DIR --examples DIR CASEFILE...
Exit status 77 (skipped) when not run as root.

A case file: lines before the first "case" belong to every case of the file.
  case TITLE          starts a case
  upgrade             the image also holds the example's upgrade files
  live                no image: the preview looks at the host itself
  booted              the image's /run holds what its generator made at a boot
  write PATH TEXT     a file of the image (\\n escapes); "chmod MODE PATH", "remove PATH"
  write-host PATH TEXT  an executable file outside the image ($W: the case's directory)
  run ARG...          the preview's arguments; $ROOT is the image, $GENERATOR the built
                      generator for a live case, $W the case's directory
  interrupt SECONDS   Ctrl-C after that long
  unprivileged        the preview runs as nobody, without capabilities
  host-unchanged      /etc, /run, /usr/vela and /var of the host hash the same after
  exit N              the exit status (default 0)
  out TEXT            a line of stdout; these lines in this order
  absent TEXT         no line of stdout holds TEXT
  err TEXT            a line of stderr
  json KEY/KEY = VALUE  a member of the JSON report (list indexes are numbers)
"""
import argparse
import glob
import hashlib
import json
import os
import shlex
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # nothing lands in the source tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "cases"))
from run_cases import read_cases  # noqa: E402

PREVIEW = "preview/vela-generator-preview"
KEYWORDS = {"case", "upgrade", "live", "booted", "write", "write-host", "chmod", "remove", "run", "interrupt",
            "unprivileged", "host-unchanged", "exit", "out", "absent", "err", "json"}
# Trees that other programs on the host change on their own.
VOLATILE = ("/var/log", "/var/cache", "/var/lib/apt", "/var/lib/dpkg", "/var/lib/systemd", "/var/tmp", "/run/user")
# The image of every case but the live ones, at $W/root.
IMAGE = '"$TOP/scripts/example_image.sh" "$W" "$BUILD"\nR=$W/root\n'
BOOTED = r"""
mkdir -p "$R/run/systemd/generator" "$R/run/systemd/generator.early" "$R/run/systemd/generator.late"
mount -t proc proc "$R/proc"
chroot "$R" /lib/systemd/system-generators/vela-system-generator \
  /run/systemd/generator /run/systemd/generator.early /run/systemd/generator.late 2>/dev/null
umount "$R/proc"
"""


# The built generator for previews of the live system, as $GENERATOR. The
# clone may lie under /tmp, which the sandbox replaces with its own: the build
# is shown at /opt (in this namespace only), and the generator is started by
# the loader with the build's library directories.
LIVE = r"""
mount --bind "$BUILD" /opt
interpreter=$(readelf -l "$BUILD/generator/vela-system-generator" | sed -n 's/.*interpreter: \(.*\)]$/\1/p')
GENERATOR=$W/generator
printf '#!/bin/sh\nexec %s --library-path /opt/platform/velasystemd:/opt/platform/velacore /opt/generator/vela-system-generator "$@"\n' \
  "$interpreter" >"$GENERATOR"
chmod 755 "$GENERATOR"
"""


def setup_script(lines):
    script = "set -e\n" + (LIVE if any(w == "live" for w, _ in lines) else IMAGE)
    if any(w == "upgrade" for w, _ in lines):
        script += 'cp -a "$EXAMPLES/upgrade/." "$R/"\n'
    for word, rest in lines:
        if word == "write":
            path, _, text = rest.partition(" ")
            script += f'mkdir -p "$(dirname "$R{path}")"; printf %s {shlex.quote(text.encode().decode("unicode_escape"))} >"$R{path}"\n'
        elif word == "write-host":
            path, _, text = rest.partition(" ")
            script += f'printf %s {shlex.quote(text.encode().decode("unicode_escape"))} >"{path}"; chmod 755 "{path}"\n'
        elif word == "chmod":
            mode, _, path = rest.partition(" ")
            script += f'chmod {mode} "$R{path}"\n'
        elif word == "remove":
            script += f'rm -rf "$R{rest}"\n'
        elif word == "booted":
            script += BOOTED
    return script


def run_script(lines, args):
    interrupt = [rest for word, rest in lines if word == "interrupt"]
    command = '"$BUILD/' + PREVIEW + '" ' + args
    if any(word == "unprivileged" for word, _ in lines):
        command = "setpriv --reuid=65534 --regid=65534 --clear-groups --inh-caps=-all " + command
    if interrupt:
        return command + f' & pid=$!; sleep {interrupt[0]}; kill -INT $pid; wait $pid\n'
    return command + "\n"


def tree_digest():
    digest = hashlib.sha256()
    for top in ("/etc", "/run", "/usr/vela", "/var"):
        for dirpath, dirnames, filenames in os.walk(top):
            dirnames[:] = sorted(d for d in dirnames if not os.path.join(dirpath, d).startswith(VOLATILE))
            for name in sorted(dirnames + filenames):
                path = os.path.join(dirpath, name)
                digest.update(path.encode())
                if os.path.islink(path):
                    digest.update(b"l" + os.readlink(path).encode())
                elif os.path.isfile(path):
                    with open(path, "rb") as file:
                        digest.update(b"f" + hashlib.sha256(file.read()).digest())
                else:
                    digest.update(b"d" if os.path.isdir(path) else b"o")
    return digest.hexdigest()


def hung_processes():
    """The processes the hung generators of the cases start: "sleep 3600"."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            if open(f"/proc/{pid}/cmdline", "rb").read() == b"sleep\x003600\x00":
                found.append(pid)
        except OSError:
            pass
    return found


def member(document, key):
    for part in key.split("/"):
        document = document[int(part)] if isinstance(document, list) else document[part]
    return document


def check(case, status, out, err, root):
    lines = [(word, rest.replace("$ROOT", root)) for word, rest in case["lines"]]
    problems = []
    expected_exit = int(next((rest for word, rest in reversed(lines) if word == "exit"), "0"))
    if status != expected_exit:
        problems.append(f"exit status {status}, expected {expected_exit}")
    out_lines, position = [line.rstrip() for line in out.splitlines()], 0
    for word, rest in lines:
        if word == "out":
            found = [i for i in range(position, len(out_lines)) if out_lines[i] == rest.rstrip()]
            if not found:
                problems.append(f"stdout lacks (in order): {rest}")
            position = found[0] + 1 if found else position
        elif word == "absent" and any(rest in line for line in out_lines):
            problems.append(f"stdout names: {rest}")
        elif word == "err" and rest not in err.splitlines():
            problems.append(f"stderr lacks: {rest}")
        elif word == "json":
            key, _, value = rest.partition(" = ")
            try:
                actual = member(json.loads(out), key)
            except (ValueError, KeyError, IndexError, TypeError) as error:
                actual = f"<{error!r}>"
            if actual != json.loads(value):
                problems.append(f"json {key} = {json.dumps(actual)}, expected {value}")
    return problems


def run_case(case, options):
    lines = case["lines"]
    args = " ".join(rest for word, rest in lines if word == "run")
    leftovers_before = set(glob.glob("/dev/shm/vela-preview.*"))
    with tempfile.TemporaryDirectory(prefix="vela-preview-case-", dir="/dev/shm") as work:
        env = dict(os.environ, W=work, BUILD=options.build, EXAMPLES=options.examples, LC_ALL="C",
                   TOP=os.path.dirname(options.examples))
        script = setup_script(lines) + 'ROOT=$R\n' + run_script(lines, args.replace("$ROOT", '"$R"'))
        guard = "host-unchanged" in [word for word, _ in lines]
        digest = tree_digest() if guard else None
        done = subprocess.run(["unshare", "--mount", "--propagation", "private", "bash", "-c", script],
                              env=env, capture_output=True, text=True, timeout=300)
        problems = check(case, done.returncode, done.stdout, done.stderr, work + "/root")
        if guard and tree_digest() != digest:
            problems.append("the host's /etc, /run, /usr/vela or /var changed")
    if set(glob.glob("/dev/shm/vela-preview.*")) - leftovers_before:
        problems.append("a temporary directory of the preview was left behind")
    if hung_processes():
        problems.append("a process of the generator was left running")
    if problems and os.environ.get("VERBOSE"):
        problems.append("stdout:\n" + done.stdout + "stderr:\n" + done.stderr)
    return problems


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--examples", required=True)
    parser.add_argument("case_files", nargs="+")
    options = parser.parse_args()
    if os.geteuid() != 0:
        print("SKIPPED: a preview needs root")
        return 77
    passed = failed = 0
    for path in options.case_files:
        for case in read_cases(path, KEYWORDS):
            problems = run_case(case, options)
            if problems:
                failed += 1
                print(f"FAIL {os.path.basename(path)}: {case['title']}\n  " + "\n  ".join(problems))
            else:
                passed += 1
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
