#!/usr/bin/env bash
# Makes an image tree of the example platform at DIR/root, for
# vela-generator-preview --root: an overlay of the host's root with a tmpfs
# upper layer, its /etc/systemd/system replaced by the example's, and the
# built generator and libraries installed where the packages put them.
# Run it in a private mount namespace (unshare --mount --propagation private):
# its mounts end with the namespace, and nothing lands on the host.
# usage: example_image.sh DIR BUILD
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
dir=$1 build=$2
mkdir -p "$dir"
mount -t tmpfs tmpfs "$dir"
mkdir "$dir/upper" "$dir/scratch" "$dir/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$dir/upper,workdir=$dir/scratch" "$dir/root"
"$top/scripts/install-platform.sh" "$dir/root" "$build" "$top/examples/platform"
