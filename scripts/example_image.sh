#!/usr/bin/env bash
# Makes an image tree of the example platform at DIR, for vela-generator-preview
# --root: an overlay of the host's root with a tmpfs upper layer, its
# /etc/systemd/system replaced by the example's, and the built generator and
# libraries installed where the packages put them. With "upgrade", also the
# example's upgrade markers and legacy configuration.
# Run it in a private mount namespace (unshare --mount --propagation private):
# its mounts end with the namespace, and nothing lands on the host.
# usage: example_image.sh DIR BUILD [upgrade]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
dir=$1 build=$2
mkdir -p "$dir"
mount -t tmpfs tmpfs "$dir"
mkdir "$dir/upper" "$dir/scratch" "$dir/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$dir/upper,workdir=$dir/scratch" "$dir/root"
root=$dir/root
rm -rf "$root/etc/systemd/system"
cp -a "$top/examples/platform/." "$root/"
if [ "${3:-}" = upgrade ]; then
  cp -a "$top/examples/upgrade/." "$root/"
fi
install -m 755 "$build/generator/vela-system-generator" "$root$(pkg-config --variable=systemdsystemgeneratordir systemd)/"
install -m 644 "$build/platform/velasystemd/libvelasystemd.so.7" "$build/platform/velacore/libvelacore.so.7" \
  "$root/usr/lib/$(gcc -print-multiarch)/"
ldconfig -r "$root"
# The build tree is the generator's run path: hidden, so that the generator
# loads the libraries installed in the image, as on a system.
mount -t tmpfs -o ro,size=4k tmpfs "$root$build"
