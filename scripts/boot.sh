#!/usr/bin/env bash
# Boots the example platform (examples/) under systemd as PID 1, in a
# container made of namespaces, with the built generator and the two stand-in
# libraries installed where a package puts them.
#
#   scripts/boot.sh [--upgrade] [--build DIR] [--platform DIR] [--no-generator]
#                   [-- COMMAND [ARG...]]
#
# --upgrade adds examples/upgrade/: the first boot after a system upgrade.
# --build names the build directory (default: build/ of this clone).
# --platform boots another platform tree in place of examples/platform/.
# --no-generator leaves the generator and the libraries out: the same boot
# without them, to compare.
# Without COMMAND it prints how to reach systemctl inside and waits for Enter
# or Ctrl-C. With COMMAND it runs it once the boot has finished, with
# VELA_BOOT_PID (the container's PID 1 as the host sees it) in its
# environment, and exits with its status.
#
# The container's manager is confined before it starts: the launching process
# moves itself into a new, empty cgroup in the cgroup2 and the name=systemd
# hierarchies and then unshares its cgroup namespace, so the manager sees that
# cgroup as the root of the system. Everything else lives in a temporary
# directory on /dev/shm and in the container's own mount namespace. On exit,
# also on failure, PID 1 is killed and the cgroups and the directory removed.
#
# Exits with 77 when this machine cannot boot it (not root, no unshare, no
# overlayfs, no cgroup2 hierarchy).
set -euo pipefail
export LC_ALL=C
top=$(cd "$(dirname "$0")/.." && pwd)

readonly CANNOT_RUN=77
readonly BOOT_TARGET=multi-user.target
readonly BOOT_TIMEOUT=40
readonly CGROUP2_MOUNTS="/sys/fs/cgroup/unified /sys/fs/cgroup"
readonly NAMED_HIERARCHY=/sys/fs/cgroup/systemd
# The device nodes the container gets, bound from the host's /dev.
readonly DEVICES="null zero full random urandom tty"
# Capabilities the container's processes never get: they act on the host's
# kernel (modules, clock, raw I/O, kernel log, security modules).
readonly DROPPED_CAPABILITIES=-sys_module,-sys_time,-sys_rawio,-syslog,-wake_alarm,-mac_admin,-mac_override

# --- Inside the new namespaces, before the manager starts ------------------

# Builds the container's root on the overlay, installs the generator, the
# libraries and the example, and replaces itself with systemd.
start_manager() {
  local tree=$1 build=$2 upgrade=$3 platform=$4 generator=$5 root=$1/root
  mount -t overlay overlay -o "lowerdir=/,upperdir=$tree/upper,workdir=$tree/work" "$root"
  install_example "$root" "$build" "$upgrade" "$platform" "$generator"
  mount_api_filesystems "$tree" "$root"
  exec chroot "$root" setpriv --bounding-set "$DROPPED_CAPABILITIES" \
    env -i container=vela-boot /lib/systemd/systemd "systemd.unit=$BOOT_TARGET" </dev/null
}

# The platform tree, with examples/upgrade/ on top for an upgrade boot.
install_example() {
  local root=$1 build=$2 upgrade=$3 platform=$4 generator=$5 without=()
  [ "$generator" = yes ] || without=(--no-generator)
  "$top/scripts/install-platform.sh" "$root" "$build" "$platform" "${without[@]}"
  if [ "$upgrade" = yes ]; then
    cp -a "$top/examples/upgrade/." "$root/"
  fi
}

mount_api_filesystems() {
  local tree=$1 root=$2 node
  mount -t proc proc "$root/proc"
  # Most kernel settings are the host's, not the namespaces': read-only.
  for node in sys sysrq-trigger; do
    [ -e "$root/proc/$node" ] || continue
    mount --bind "$root/proc/$node" "$root/proc/$node"
    mount -o remount,bind,ro "$root/proc/$node"
  done
  mount -t sysfs -o ro sysfs "$root/sys"
  mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
  mount -t tmpfs -o mode=755 tmpfs "$root/run"
  mount -t tmpfs -o mode=755 tmpfs "$root/dev"
  for node in $DEVICES; do
    touch "$root/dev/$node"
    mount --bind "/dev/$node" "$root/dev/$node"
  done
  mkdir "$root/dev/pts" "$root/dev/shm"
  mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
  ln -s pts/ptmx "$root/dev/ptmx"
}

if [ "${1:-}" = --start-manager ]; then
  shift
  start_manager "$@"
fi

# --- On the host -----------------------------------------------------------

cannot_run() {
  echo "boot.sh: cannot boot the example platform here: $1" >&2
  exit $CANNOT_RUN
}

check_machine() {
  [ "$(id -u)" = 0 ] || cannot_run "not root"
  command -v unshare >/dev/null || cannot_run "no unshare"
  command -v nsenter >/dev/null || cannot_run "no nsenter"
  grep -qw overlay /proc/filesystems || modprobe overlay 2>/dev/null || cannot_run "no overlayfs"
  grep -qw overlay /proc/filesystems || cannot_run "no overlayfs"
  [ -x /lib/systemd/systemd ] || cannot_run "no systemd"
  cgroup2_root >/dev/null || cannot_run "no cgroup2 hierarchy"
}

# The host's cgroup2 hierarchy: /sys/fs/cgroup/unified in the hybrid layout.
cgroup2_root() {
  local dir
  for dir in $CGROUP2_MOUNTS; do
    if [ "$(stat -f -c %T "$dir" 2>/dev/null)" = cgroup2fs ]; then
      echo "$dir"
      return 0
    fi
  done
  return 1
}

# The cgroups of this boot: one in the cgroup2 hierarchy and, in the hybrid
# layout, one in the name=systemd hierarchy.
boot_cgroups() {
  echo "$(cgroup2_root)/$1"
  if [ "$(stat -f -c %T $NAMED_HIERARCHY 2>/dev/null)" = cgroupfs ]; then
    echo "$NAMED_HIERARCHY/$1"
  fi
}

# Kills the container's PID 1 (the kernel then kills every process of its PID
# namespace) and whatever else is in its cgroup, waits for the cgroups to
# empty and removes them, deepest first.
clean_up() {
  local status=$? cgroup
  trap - EXIT INT TERM
  set +e
  [ -z "${pid1:-}" ] || kill -KILL "$pid1" 2>/dev/null || true
  for cgroup in $cgroups; do
    [ ! -e "$cgroup/cgroup.kill" ] || echo 1 >"$cgroup/cgroup.kill"
  done
  [ -z "${launcher:-}" ] || wait "$launcher" 2>/dev/null || true
  for cgroup in $cgroups; do
    [ -d "$cgroup" ] || continue
    for _ in $(seq 50); do
      [ -z "$(find "$cgroup" -name cgroup.procs -exec cat {} +)" ] && break
      sleep 0.1
    done
    find "$cgroup" -depth -type d -exec rmdir {} + || echo "boot.sh: could not remove $cgroup" >&2
  done
  rm -rf "${tree:?}"
  exit "$status"
}

# The launching process moves itself into the new cgroups, then unshares:
# the new cgroup namespace has the first of them as its root.
launch() {
  local cgroup
  for cgroup in $cgroups; do
    echo "$BASHPID" >"$cgroup/cgroup.procs" || { echo "boot.sh: cannot move into $cgroup" >&2; exit 1; }
  done
  exec unshare --pid --fork --mount --cgroup --uts --ipc --net --propagation private --kill-child \
    "$top/scripts/boot.sh" --start-manager "$tree" "$build" "$upgrade" "$platform" "$generator" >"$tree/launcher.log" 2>&1
}

# The container's PID 1: the one child of unshare.
find_pid1() {
  for _ in $(seq 100); do
    pid1=$(cat "/proc/$launcher/task/$launcher/children" 2>/dev/null || true)
    pid1=${pid1// /}
    [ -z "$pid1" ] || return 0
    sleep 0.05
  done
  echo "boot.sh: the container did not start" >&2
  return 1
}

inside() {
  nsenter -t "$pid1" -a -r -w "$@"
}

# Waits until the manager has finished booting; "offline" while it is not up
# yet, "initializing" and "starting" while it boots.
wait_for_boot() {
  local state=offline deadline=$((SECONDS + BOOT_TIMEOUT))
  while [ $SECONDS -lt $deadline ] && [ -d "/proc/$pid1" ]; do
    state=$(timeout $BOOT_TIMEOUT nsenter -t "$pid1" -a -r -w systemctl is-system-running --wait 2>/dev/null) || true
    case "$state" in
    offline | initializing | starting | "") sleep 0.1 ;;
    *) break ;;
    esac
  done
  if [ "$state" != running ]; then
    echo "boot.sh: the boot did not reach running: ${state:-no answer}" >&2
    inside systemctl --no-pager --failed >&2 || true
    tail -n 20 "$tree/launcher.log" >&2 || true
  fi
}

upgrade=no
build=$top/build
platform=$top/examples/platform
generator=yes
while [ $# -gt 0 ]; do
  case "$1" in
  --upgrade) upgrade=yes; shift ;;
  --build) build=$(cd "$2" && pwd); shift 2 ;;
  --platform) platform=$(cd "$2" && pwd); shift 2 ;;
  --no-generator) generator=no; shift ;;
  --) shift; break ;;
  *) echo "usage: boot.sh [--upgrade] [--build DIR] [--platform DIR] [--no-generator] [-- COMMAND [ARG...]]" >&2; exit 2 ;;
  esac
done
[ -x "$build/generator/vela-system-generator" ] || { echo "boot.sh: no generator built in $build" >&2; exit 2; }
check_machine

tree=$(mktemp -d /dev/shm/vela-boot.XXXXXX)
cgroups=$(boot_cgroups "$(basename "$tree")")
trap clean_up EXIT
trap 'exit 130' INT TERM
mkdir "$tree/root" "$tree/upper" "$tree/work"
for cgroup in $cgroups; do
  mkdir "$cgroup"
done
launch &
launcher=$!
find_pid1
wait_for_boot

if [ $# -gt 0 ]; then
  VELA_BOOT_PID=$pid1 "$@"
  exit
fi
echo "The example platform is booted (PID 1 of the container is $pid1 on the host). Inside:"
echo "  nsenter -t $pid1 -a -r -w systemctl status"
echo "  nsenter -t $pid1 -a -r -w journalctl -b"
echo "Press Enter or Ctrl-C to stop it and clean up."
read -r _ || true
