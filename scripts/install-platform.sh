#!/usr/bin/env bash
# Installs into the root tree ROOT what a boot of a platform needs: the built
# generator in systemd's generator directory and the two stand-in libraries in
# the multiarch library directory, where the packages put them (left out with
# --no-generator), and the platform tree PLATFORM on top, its
# /etc/systemd/system in place of ROOT's, so that only the platform's enable
# links count. Used by the boot container and the preview's example image.
# Run it in a private mount namespace: it mounts over the build tree in ROOT.
# usage: install-platform.sh ROOT BUILD PLATFORM [--no-generator]
set -euo pipefail
root=$1 build=$2 platform=$3
if [ "${4:-}" != --no-generator ]; then
  install -m 755 "$build/generator/vela-system-generator" \
    "$root$(pkg-config --variable=systemdsystemgeneratordir systemd)/"
  install -m 644 "$build/platform/velasystemd/libvelasystemd.so.7" "$build/platform/velacore/libvelacore.so.7" \
    "$root/usr/lib/$(gcc -print-multiarch)/"
  ldconfig -r "$root"
  # The build tree is the generator's run path: hidden, so that the generator
  # loads the installed libraries, as on a system.
  if [ -d "$root$build" ]; then
    mount -t tmpfs -o ro,size=4k,mode=755 tmpfs "$root$build"
  fi
fi
rm -rf "$root/etc/systemd/system"
cp -a "$platform/." "$root/"
