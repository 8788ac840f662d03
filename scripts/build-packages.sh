#!/usr/bin/env bash
# Builds the Debian packages (vela-system-generator, libvelasystemd7,
# libvelacore7) with dpkg-buildpackage and puts them into the directory given
# (default: build/packages). It builds from a copy of the source on tmpfs, so
# the clone's work tree stays as it is and nothing lands beside the clone.
# DEB_BUILD_OPTIONS from the caller is passed on.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-"$top/build/packages"}

work=$(mktemp -d /dev/shm/vela-packages.XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir "$work/source"
# Everything but version control and build directories.
tar -C "$top" --exclude=./.git --exclude='./build*' --exclude='./obj-*' -cf - . | tar -C "$work/source" -xf -

export DEB_BUILD_OPTIONS="parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}"
if ! (cd "$work/source" && dpkg-buildpackage -us -uc -b) >"$work/build.log" 2>&1; then
  tail -n 40 "$work/build.log"
  echo "The package build failed; the lines above end its output." >&2
  exit 1
fi

mkdir -p "$out"
rm -f "$out"/*.deb
mv "$work"/*.deb "$out/"
echo "Packages in $out:"
(cd "$out" && ls -- *.deb)
