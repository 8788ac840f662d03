#!/usr/bin/env python3
"""Runs one command in a private system made with bubblewrap.

The host is shown read-only, /tmp is empty, and the private paths (/run, /var,
/usr/vela, /.old_patch_info, /etc/systemd, /etc/velasystemd and any more asked
for) are binds of ROOT/PATH, so that what a run writes lands in ROOT and
nowhere else. /dev/log is a datagram socket of ours: the command's syslog
lines are caught and returned as "<PRI> IDENT: MESSAGE".

usage: vela_sandbox.py --state DIR [--private PATH] [--bind-ro PATH] [--env NAME=VALUE]
                       [--timeout SECONDS] [--log FILE] -- COMMAND [ARG]...
  DIR/root/PATH backs private path PATH; DIR/control is /.vela-test inside;
  the three generator directories are made when missing.
  Exit status: the command's; 124 past the time limit.
"""
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading

PRIVATE_PATHS = ["/run", "/var", "/usr/vela", "/.old_patch_info", "/etc/systemd", "/etc/velasystemd"]
CONTROL_DIR = "/.vela-test"
# Made by the command line when missing, as the service manager makes them.
GENERATOR_DIRS = ["/run/systemd/generator", "/run/systemd/generator.early", "/run/systemd/generator.late"]
PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
# Shown by bubblewrap itself or empty in the sandbox.
FRESH = {"/dev", "/proc", "/tmp", CONTROL_DIR}
# A remount of a host directory below ROOT before the sandbox starts, in a
# mount namespace of the launcher's own: read-only, or full from the start.
REMOUNTS = {
    "ro": 'mount --bind "$1" "$1" && mount -o remount,bind,ro "$1"',
    "full": 'mount -t tmpfs -o size=4k,nr_inodes=1,mode=0755 vela-full "$1"',
}
SYSLOG = re.compile(r"<(\d+)>.{15} ([^:]*): (.*)", re.S)


def below(path, dirs):
    return [d for d in dirs if d.startswith(path.rstrip("/") + "/")]


def show_host(directory, private, args):
    """Shows the host's entries of `directory`, walking down towards private paths."""
    for name in sorted(os.listdir(directory)):
        path = os.path.join(directory, name)
        if path in FRESH or path in private:
            continue
        if os.path.islink(path):
            args += ["--symlink", os.readlink(path), path]
        elif os.path.isdir(path) and below(path, private):
            args += ["--dir", path]
            show_host(path, private, args)
        else:
            args += ["--ro-bind", path, path]


def bwrap_command(root, command, private, ro_binds, control, env, log_socket):
    outermost = [p for p in private if not any(p.startswith(o + "/") for o in private)]
    args = ["bwrap", "--tmpfs", "/"]
    show_host("/", outermost, args)
    args += ["--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp"]
    for path in outermost:
        os.makedirs(root + path, exist_ok=True)
        args += ["--bind", root + path, path]
    args += ["--bind", log_socket, "/dev/log"]
    for path in ro_binds:
        args += ["--ro-bind", path, path]
    if control:
        args += ["--bind", control, CONTROL_DIR]
    args += ["--remount-ro", "/", "--unshare-pid", "--unshare-ipc", "--unshare-uts", "--unshare-net",
             "--unshare-cgroup-try", "--die-with-parent", "--new-session", "--chdir", "/", "--clearenv",
             "--setenv", "PATH", PATH]
    for name, value in env.items():
        args += ["--setenv", name, value]
    return args + ["--"] + command


def with_remounts(root, remounts, command):
    for kind, path in remounts:
        script = REMOUNTS[kind] + ' || exit 125; shift; exec "$@"'
        command = ["unshare", "--mount", "--propagation", "private", "sh", "-c", script, "sh", root + path] + command
    return command


def missing_parents(root, binds, private):
    """The directories under ROOT that binds below private paths will make."""
    made = []
    for path in binds:
        if any(path.startswith(p + "/") for p in private):
            parts = path.split("/")
            made += [root + "/".join(parts[:i]) for i in range(2, len(parts) + 1)
                     if not os.path.lexists(root + "/".join(parts[:i]))]
    return made


def read_log(sock, lines):
    while True:
        data = sock.recv(65536)
        if not data:
            return
        match = SYSLOG.fullmatch(data.decode(errors="backslashreplace").rstrip("\n\0"))
        lines.append(f"<{match[1]}> {match[2]}: {match[3]}" if match else data.decode(errors="backslashreplace"))


def run(root, command, private=(), ro_binds=(), control=None, env=None, remounts=(), timeout=30):
    """Runs `command`; returns (exit status, stdout, stderr, syslog lines)."""
    private = sorted(set(PRIVATE_PATHS) | set(private))
    made = missing_parents(root, ro_binds, private)
    with tempfile.TemporaryDirectory(dir="/dev/shm") as work:
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        sock.bind(work + "/log")
        lines = []
        reader = threading.Thread(target=read_log, args=(sock, lines))
        reader.start()
        args = bwrap_command(root, command, private, ro_binds, control, env or {}, work + "/log")
        try:
            done = subprocess.run(with_remounts(root, remounts, args), capture_output=True, timeout=timeout)
            status = done.returncode if done.returncode >= 0 else 128 - done.returncode
            out, err = done.stdout, done.stderr
        except subprocess.TimeoutExpired as expired:
            status, out, err = 124, expired.stdout or b"", expired.stderr or b""
        sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        sender.sendto(b"", work + "/log")
        reader.join()
        sock.close()
    for path in reversed(made):
        os.rmdir(path)
    return status, out.decode(errors="backslashreplace"), err.decode(errors="backslashreplace"), lines


def main(argv):
    options = {"--private": [], "--bind-ro": [], "--env": [], "--timeout": ["30"], "--log": [], "--state": []}
    while argv and argv[0] != "--" and argv[0] in options and len(argv) > 1:
        options[argv[0]].append(argv[1])
        argv = argv[2:]
    if not argv or argv[0] != "--" or len(argv) < 2 or not options["--state"]:
        sys.exit(__doc__)
    state = os.path.abspath(options["--state"][-1])
    for path in ["/control"] + ["/root" + d for d in GENERATOR_DIRS]:
        os.makedirs(state + path, exist_ok=True)
    env = dict(item.split("=", 1) for item in options["--env"])
    status, out, err, lines = run(state + "/root", argv[1:], options["--private"], options["--bind-ro"],
                                  state + "/control", env, timeout=float(options["--timeout"][-1]))
    sys.stdout.write(out)
    sys.stderr.write(err)
    log = "".join(line + "\n" for line in lines)
    if options["--log"]:
        with open(options["--log"][-1], "w") as file:
            file.write(log)
    else:
        sys.stderr.write(log)
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
