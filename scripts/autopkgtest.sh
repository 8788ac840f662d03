#!/usr/bin/env bash
# Runs the autopkgtests of debian/tests/ with autopkgtest's `null` runner
# against the built packages (default: build/packages), inside a throwaway
# overlay of the host's root (a tmpfs upper layer) made the root of private
# mount and PID namespaces: the packages are installed there, never on the
# host. Usage: autopkgtest.sh [PACKAGE_DIR]. Exit status 77: skipped.
set -euo pipefail
skip() { echo "SKIPPED: $*"; exit 77; }

if [ "${1:-}" != --inside ]; then
  source=$(cd "$(dirname "$0")/.." && pwd)
  debs=$(realpath -m "${1:-$source/build/packages}")
  [ "$(id -u)" = 0 ] || skip "installing packages needs root"
  for tool in autopkgtest unshare pivot_root; do
    command -v "$tool" >/dev/null || skip "$tool is not installed: run scripts/install-deps.sh"
  done
  unshare --mount --pid --fork true 2>/dev/null || skip "cannot make private mount and PID namespaces here"
  grep -qw overlay /proc/filesystems || modprobe overlay 2>/dev/null || skip "the kernel has no overlay file system"
  packages=$("$source/scripts/binary-packages.sh")
  for package in $packages; do
    compgen -G "$debs/${package}_*.deb" >/dev/null || skip "no ${package}_*.deb in $debs: run scripts/build-packages.sh"
  done
  work=$(mktemp -d /dev/shm/vela-autopkgtest.XXXXXX)
  trap 'rm -rf "$work"' EXIT
  # The mounts live and die with the namespaces, also when a step fails.
  unshare --mount --propagation private --pid --fork "$0" --inside "$work" "$debs" "$source" $packages
  exit
fi
work=$2 debs=$3 source=$4
shift 4
mount -t tmpfs tmpfs "$work"
mkdir "$work"/{upper,work,root}
root=$work/root
mount -t overlay overlay -o "lowerdir=/,upperdir=$work/upper,workdir=$work/work" "$root" || skip "cannot mount an overlay of /"
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
for path in dev/shm run tmp; do mount -t tmpfs tmpfs "$root/$path"; done
mkdir "$root/tmp/debs" "$root/tmp/source"
for package in "$@"; do cp "$debs/${package}"_*.deb "$root/tmp/debs/"; done
tar -C "$source" --exclude=./.git --exclude='./build*' --exclude='./obj-*' -cf - . | tar -C "$root/tmp/source" -xf -

# The overlay becomes the root itself, so that everything there, down to the
# tests' sandbox, sees an ordinary root rather than a chroot.
cd "$root"
pivot_root . mnt
umount -l /mnt
cd /
autopkgtest /tmp/debs/*.deb /tmp/source -- null
