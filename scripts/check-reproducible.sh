#!/usr/bin/env bash
# Builds the Debian packages twice with reprotest and compares every .deb
# (debug symbols included) byte for byte. The second build varies what
# Debian's reproducible-builds checks vary: the build path, the clock (months
# ahead, with faketime), the time zone, the umask, the locale, the order of
# directory entries (disorderfs), the host and domain name, the kernel
# personality, the number of CPUs, HOME, PATH and the environment. A second
# pair of builds also varies the user and group (nobody:nogroup): disorderfs
# cannot serve another user where /dev/fuse is root's alone, so that pair
# keeps the file order.
# Usage: check-reproducible.sh [SOURCE_DIR] (default: this clone).
# Exit status 77: skipped.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
# reprotest's own choice: its sort order differs from the C locale's.
VARIED_LOCALE=et_EE
OTHER_USER=nobody:nogroup
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAILED: $*" >&2; exit 1; }

# Locales of our own, found through LOCPATH, so that the host needs none
# installed: the varied one and C.UTF-8, which the first build uses.
make_locales() {
  mkdir "$work/locale"
  localedef -i "$VARIED_LOCALE" -f UTF-8 "$work/locale/$VARIED_LOCALE.UTF-8"
  cp -a /usr/lib/locale/C.utf8 "$work/locale/"
}

# reprotest 0.7.23 calls `sudo -h localhost`, which Debian 12's sudo takes
# for a remote host and refuses; this sudo drops those two arguments.
make_sudo_without_host() {
  mkdir "$work/bin"
  printf '#!/bin/sh\n[ "$1 $2" = "-h localhost" ] && shift 2\nexec /usr/bin/sudo "$@"\n' >"$work/bin/sudo"
  chmod 755 "$work/bin/sudo"
}

fuse_works() {
  mkdir "$work/fuse-a" "$work/fuse-b"
  disorderfs -q "$work/fuse-a" "$work/fuse-b" 2>/dev/null && fusermount -u "$work/fuse-b"
}

# One pair of builds, named $1, with reprotest's options $2...
compare_builds() {
  local name=$1
  shift
  echo "== $name"
  if ! reprotest --verbosity 1 --no-diffoscope --store-dir "$work/$name" "$@" \
      -c 'cd source && dpkg-buildpackage --no-sign -b' "$work/tree" '*.deb' -- null >"$work/$name.log" 2>&1; then
    tail -n 60 "$work/$name.log"
    fail "$name: the builds differ or one failed; the lines above end reprotest's output"
  fi
  grep -E '^INFO:reprotest.build:|^INFO:reprotest:build "experiment' "$work/$name.log" | sed 's/^INFO:reprotest[.a-z]*:/  /'
  sed -n '/^Reproduction successful/,/^However/p' "$work/$name.log" | grep -v '^However'
  # reprotest lists the identical files it compared.
  for package in $("$top/scripts/binary-packages.sh" "$source/debian/control"); do
    grep -q " \./${package}_[^ ]*\.deb$" "$work/$name/SHA256SUMS" || fail "$name: no ${package}_*.deb was compared"
  done
}

source=$(realpath "${1:-$top}")
for tool in reprotest faketime disorderfs localedef dpkg-buildpackage; do
  command -v "$tool" >/dev/null || skip "$tool is not installed: run scripts/install-deps.sh"
done
work=$(mktemp -d /dev/shm/vela-reproducible.XXXXXX)
trap 'rm -rf "$work"' EXIT
# The other user builds in here and writes its temporary files here too.
chmod 755 "$work"
mkdir -p "$work/tree/source" "$work/tmp"
chmod 1777 "$work/tmp"
tar -C "$source" --exclude=./.git --exclude='./build*' --exclude='./obj-*' -cf - . | tar -C "$work/tree/source" -xf -
make_locales
make_sudo_without_host
export LOCPATH=$work/locale TMPDIR=$work/tmp PATH=$work/bin:$PATH DEB_BUILD_OPTIONS="parallel=$(nproc)"

file_order=()
fuse_works || { echo "NOT VARIED: the file order (disorderfs cannot mount here)"; file_order=(--vary=-fileordering); }
compare_builds all-but-user --vary=-user_group "${file_order[@]}"
if [ "$(id -u)" = 0 ] && command -v sudo >/dev/null; then
  compare_builds with-user --vary=-fileordering --vary=user_group.available+="$OTHER_USER" --vary=domain_host.use_sudo=1
else
  echo "NOT VARIED: the user (building as $OTHER_USER needs root and sudo)"
fi
echo "the packages are identical, byte for byte, under every variation above"
