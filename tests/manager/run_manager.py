#!/usr/bin/env python3
"""The generator under systemd's own loader: `systemd-analyze verify
--generators=yes` runs the built generator on the example platform in a
sandbox and dumps the units it loads. What it reports, reduced to one line per
fact (masked units, Wants= of targets, PartOf=, ReloadPropagatedFrom=,
ExecStartPre=, the platform's drop-ins, warnings, log lines, programs run), must
equal the expected file of that boot.

usage: run_manager.py (--build DIR | --generator PATH) --examples DIR ordinary|upgrade EXPECTED
  --build: the generator of a build directory; --generator: an installed one,
  which loads the libraries installed beside it.
"""
import argparse
import difflib
import os
import re
import shutil
import sys
import tempfile

sys.dont_write_bytecode = True  # nothing lands in the source tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts"))
import vela_sandbox  # noqa: E402

UNIT_DIR = "/etc/systemd/system"
GENERATORS = vela_sandbox.CONTROL_DIR + "/generators"
KEYS = ("Wants", "PartOf", "ReloadPropagatedFrom")
# A warning about a line of one of our files: "PATH:LINE: ".
OUR_FILE_WARNING = re.compile(r"(/etc/systemd/system|/run|/tmp/systemd-temporary-)[^ ]*:\d+: |Unknown key|bad unit file")


def units_to_load(root):
    """Every unit file of the example but templates, and the instances it enables."""
    names = {n for n in os.listdir(root + UNIT_DIR) if not os.path.isdir(root + UNIT_DIR + "/" + n) and "@." not in n}
    for wants in [d for d in os.listdir(root + UNIT_DIR) if os.path.isdir(root + UNIT_DIR + "/" + d)]:
        names |= {n for n in os.listdir(root + UNIT_DIR + "/" + wants) if re.search(r"@.+\.", n)}
    return sorted(names)


def facts_of_dump(dump, units):
    facts, unit, group = [], None, None
    for line in dump.splitlines():
        if line.startswith("\t-> Unit "):
            unit, group = line[9:].rstrip(":"), None
        elif unit not in units:
            continue
        elif line.startswith("\t\t-> "):
            group = line[5:].rstrip(":")
        elif line.startswith("\t\tDropIn Path: ") and "/vela-" in line:
            facts.append(f"{unit} drop-in " + re.sub(r"/tmp/systemd-temporary-\w+/", "/run/systemd/", line[15:]))
        elif line.startswith("\t\t") and line[2:].split(":")[0] in KEYS:
            key, value = line[2:].split(": ", 1)
            facts.append(f"{unit} {key}= {value.split(' (')[0]}")
        elif line.startswith("\t\t\tCommand Line: ") and group == "ExecStartPre":
            facts.append(f"{unit} ExecStartPre= {line[17:]}")
    return facts


def main():
    parser = argparse.ArgumentParser()
    where = parser.add_mutually_exclusive_group(required=True)
    where.add_argument("--build")
    where.add_argument("--generator")
    parser.add_argument("--examples", required=True)
    parser.add_argument("boot", choices=["ordinary", "upgrade"])
    parser.add_argument("expected")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="vela-manager-", dir="/dev/shm") as work:
        root, control = work + "/root", work + "/control"
        shutil.copytree(options.examples + "/platform", root, symlinks=True)
        if options.boot == "upgrade":
            shutil.copytree(options.examples + "/upgrade", root, symlinks=True, dirs_exist_ok=True)
        os.makedirs(control + "/generators")
        generator = options.generator or os.path.join(options.build, "generator", "vela-system-generator")
        os.symlink(generator, control + "/generators/vela-system-generator")
        units = units_to_load(root)
        env = {"SYSTEMD_LOG_LEVEL": "debug", "SYSTEMD_GENERATOR_PATH": GENERATORS}
        _, dump, err, log = vela_sandbox.run(root, ["systemd-analyze", "verify", "--generators=yes", "--man=no"] + units,
                                             ro_binds=[options.build] if options.build else [], control=control, env=env, timeout=120)
        programs = open(root + "/var/log/vela-migration.log").read() if os.path.exists(root + "/var/log/vela-migration.log") else ""
    facts = facts_of_dump(dump, units)
    facts += ["masked " + line[5:-11] for line in err.splitlines() if re.fullmatch(r"Unit \S+ is masked\.", line)]
    facts += ["warning " + line for line in err.splitlines() if OUR_FILE_WARNING.match(line) or "Unknown key" in line]
    facts += ["generator succeeded" for line in err.splitlines() if line == GENERATORS + "/vela-system-generator succeeded."]
    facts += ["log " + re.sub(r"<11> vela-system-generator: ([\w.-]+):\d+ velasystemd: ", r"\1: ", line) for line in log]
    facts += ["program " + line for line in programs.splitlines()]
    expected = [line for line in open(options.expected).read().splitlines() if line and not line.startswith("#")]
    changed = [line for line in difflib.ndiff(sorted(expected), sorted(facts)) if line[:1] in "-+"]
    print("\n".join(f"  {line[:1]} {line[2:]}" for line in changed) or f"{options.boot} boot: as expected")
    return 1 if changed else 0


if __name__ == "__main__":
    sys.exit(main())
