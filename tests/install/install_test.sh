#!/usr/bin/env bash
# Installs the built packages into a throwaway overlay of the host's root (a
# tmpfs upper layer, in private mount and PID namespaces), lets systemd's own
# loader run the generator from where the package put it on the example
# platform, starts the installed preview, and purges the packages: nothing of
# theirs may be left behind.
# Usage: install_test.sh PACKAGE_DIR EXAMPLES_DIR. Exit status 77: skipped.
set -euo pipefail
PACKAGES=(vela-system-generator vela-system-generator-tools libvelasystemd7 libvelacore7)
# What dpkg, ldconfig and the manual-page index keep about every package.
BOOKKEEPING='var/lib/dpkg|var/log|var/cache|etc/ld\.so\.cache'
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAILED: $*" >&2; exit 1; }

if [ "$1" != --inside ]; then
  [ "$(id -u)" = 0 ] || skip "installing packages needs root"
  for tool in dpkg unshare chroot systemd-analyze man; do
    command -v "$tool" >/dev/null || skip "$tool is not installed"
  done
  unshare --mount --pid --fork true 2>/dev/null || skip "cannot make private mount and PID namespaces here"
  grep -qw overlay /proc/filesystems || modprobe overlay 2>/dev/null || skip "the kernel has no overlay file system"
  for package in "${PACKAGES[@]}"; do
    compgen -G "$1/${package}_*.deb" >/dev/null || skip "no ${package}_*.deb in $1: run scripts/build-packages.sh"
  done
  work=$(mktemp -d /dev/shm/vela-install-test.XXXXXX)
  trap 'rm -rf "$work"' EXIT
  # The mounts live and die with the namespaces, also when a step fails.
  unshare --mount --propagation private --pid --fork "$0" --inside "$work" "$@"
  exit
fi
work=$2 debs=$3 examples=$4
mount -t tmpfs tmpfs "$work"
mkdir "$work"/{upper,work,root,upper2,work2,root2}

# Mounts at $4 an overlay of $1 with upper layer $2, and the API file systems.
mount_root() {
  mount -t overlay overlay -o "lowerdir=$1,upperdir=$2,workdir=$3" "$4" || skip "cannot mount an overlay of $1"
  mount -t proc proc "$4/proc"; mount --bind /dev "$4/dev"
  mount -t tmpfs tmpfs "$4/run"; mount -t tmpfs tmpfs "$4/tmp"; mkdir "$4/tmp/debs"
}
root=$work/root booted=$work/root2
mount_root / "$work/upper" "$work/work" "$root"
for package in "${PACKAGES[@]}"; do cp "$debs/${package}"_*.deb "$root/tmp/debs/"; done
chroot "$root" dpkg -i --recursive /tmp/debs >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; fail "dpkg -i"; }
generator=$(chroot "$root" dpkg -L vela-system-generator | grep /system-generators/)

# The installed system as it boots, on a second overlay that goes away after.
mount_root "$root" "$work/upper2" "$work/work2" "$booted"
cp -a "$examples/platform/." "$booted/"
units=$(cd "$booted/etc/systemd/system" && ls -p | grep -v -e / -e '@\.' && echo vela-volume@data.service)
SYSTEMD_LOG_LEVEL=debug chroot "$booted" systemd-analyze verify --generators=yes --man=no $units \
  >"$work/dump" 2>"$work/verify" || true
ran=$(sed -n 's/^About to execute \(.*vela-system-generator\) (null)$/\1/p' "$work/verify")
[ -n "$ran" ] && [ "$booted$ran" -ef "$booted$generator" ] || fail "the loader did not run $generator"
grep -qx "$ran succeeded." "$work/verify" || { cat "$work/verify"; fail "$ran did not succeed"; }
grep -qx 'Unit wifi-ap.service is masked.' "$work/verify" || fail "wifi-ap.service is not masked"
awk '/^\t-> Unit /{unit=$3} unit=="vela-net.target:" && /^\t\tWants: nfs-server.service /{found=1} END{exit !found}' \
  "$work/dump" || fail "vela-net.target does not want nfs-server.service"
grep -q $'^\t\tDropIn Path: .*/nfs-server.service.d/vela-pack.conf$' "$work/dump" || fail "no pack drop-in"
# The loader finds the multiarch directory by itself: its cache shows that
# the libraries' ldconfig trigger ran.
chroot "$booted" ldconfig -p >"$work/cache"
for library in libvelasystemd.so.7 libvelacore.so.7; do
  grep -qF $'\t'"$library " "$work/cache" || fail "$library is not in the loader's cache"
done
[ "$(chroot "$booted" man -w vela-system-generator)" = /usr/share/man/man8/vela-system-generator.8.gz ] ||
  fail "man finds no page vela-system-generator"
[ "$(chroot "$booted" man -w vela-generator-preview)" = /usr/share/man/man8/vela-generator-preview.8.gz ] ||
  fail "man finds no page vela-generator-preview"
chroot "$booted" vela-generator-preview --help >/dev/null || fail "the installed preview does not start"
umount -R "$booted"

chroot "$root" dpkg --purge "${PACKAGES[@]}" >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; fail "dpkg --purge"; }
for package in "${PACKAGES[@]}"; do
  ! chroot "$root" dpkg-query -W "$package" >/dev/null 2>&1 || fail "dpkg still knows $package"
done
umount -R "$root"
# What installing and purging changed: only bookkeeping, and host directories
# that held the packages' files for a while.
(cd "$work/upper" && find . -mindepth 1 -printf '%y %P\n') | grep -vE "^. ($BOOKKEEPING)(/|$)" |
  while read -r type path; do
    [ "$type" = d ] && [ -d "/$path" ] || echo "$type /$path"
  done >"$work/leftovers"
[ ! -s "$work/leftovers" ] || { cat "$work/leftovers"; fail "the purge left the paths above behind"; }
echo "installed, loaded by systemd-analyze from $generator, and purged without leftovers"
