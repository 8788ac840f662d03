#!/usr/bin/env bash
# Installs what is missing, builds, and shows with vela-generator-preview what
# the generator does on the example platform (examples/): first an ordinary
# boot, then the first boot after a system upgrade, each followed by a second
# run as a reload makes and by systemd's own loader. The preview shows masks,
# wants links, drop-ins, enable operations, run-once flags, programs run and
# log lines.
#
# Needs root. Nothing is written on the host outside the build directory and
# /dev/shm: the image is an overlay in a private mount namespace.
set -euo pipefail
export LC_ALL=C
top=$(cd "$(dirname "$0")/.." && pwd)
build=$top/build

build_preview() {
  "$top/scripts/install-deps.sh"
  mkdir -p "$build"
  echo "Building into $build (output in $build/demo-build.log) ..."
  if ! VELA_BUILD_TARGETS="vela-system-generator vela-generator-preview" \
      "$top/scripts/build.sh" "$build" -DVELA_TESTS=ON >"$build/demo-build.log" 2>&1; then
    tail -n 40 "$build/demo-build.log"
    echo "The build failed; its whole output is in $build/demo-build.log" >&2
    exit 1
  fi
}

if [ "${1:-}" != --inside ]; then
  build_preview
  state=$(mktemp -d /dev/shm/vela-demo.XXXXXX)
  trap 'rm -rf "$state"' EXIT
  # The image's mounts live and die with this namespace.
  unshare --mount --propagation private "$0" --inside "$state"
  exit
fi
state=$2 root=$2/root
preview=$build/preview/vela-generator-preview
"$top/scripts/example_image.sh" "$state" "$build"

echo
echo "vela-system-generator on the example platform (examples/platform), previewed"
printf '  %s unit files in /etc/systemd/system; support table /usr/vela/etc/unit-support.conf\n' \
  "$(find "$root/etc/systemd/system" -maxdepth 1 \( -type f -o -type l \) | wc -l)"
printf '  change marks: %s\n' "$(cd "$root/etc/velasystemd/changed" && ls | paste -sd ' ')"

printf '\n=== Boot 1: an ordinary boot (no upgrade markers) ===\n'
"$preview" --root "$root" --reload --verify || true

printf '\n=== Boot 2: the first boot after an upgrade ===\n'
cp -a "$top/examples/upgrade/." "$root/"
printf '  markers: /var/.UpgradeBootup, /.old_patch_info/VERSION (%s)\n' "$(cat "$root/.old_patch_info/VERSION")"
printf '  legacy auto_start settings in /usr/vela/etc/velaservice.override/:\n'
for file in "$root"/usr/vela/etc/velaservice.override/*; do
  value=$(tr -d '\n' <"$file" | sed -nE 's/.*"auto_start"[[:space:]]*:[[:space:]]*("[^"]*"|[a-z0-9]+).*/\1/p')
  printf '    %-28s auto_start %s\n' "$(basename "$file")" "${value:-(none)}"
done
"$preview" --root "$root" --upgrade --reload --verify || true
