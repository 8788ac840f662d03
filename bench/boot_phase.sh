#!/usr/bin/env bash
# The generators' phase of a real boot: boots a platform under systemd as PID 1
# (scripts/boot.sh) with and without vela-system-generator installed, and
# reads from the manager when it started and finished running its generators
# (GeneratorsStartTimestampMonotonic, GeneratorsFinishTimestampMonotonic).
# Two platforms: the example (examples/platform/) and the benchmark's tree of
# UNITS units (bench/make_scenario.cpp). The four kinds of boot take turns,
# so that a change in the machine's load falls on all of them alike. Prints
# the median phase of each, and what the generator left in the early
# directory (its masks) as a check that it ran.
#
# usage: bench/boot_phase.sh [--boots N] [--units N] [--build DIR]
#   --boots  boots of each kind (default 11)
#   --units  units of the benchmark's tree (default 1000)
#   --build  build directory with the generator and make-scenario (default build/)
# Runs as root, as scripts/boot.sh does; exits with 77 where it cannot boot.
set -euo pipefail
export LC_ALL=C
top=$(cd "$(dirname "$0")/.." && pwd)
boots=11
units=1000
build=$top/build
while [ $# -gt 0 ]; do
  case "$1" in
  --boots) boots=$2; shift 2 ;;
  --units) units=$2; shift 2 ;;
  --build) build=$(cd "$2" && pwd); shift 2 ;;
  *) sed -n '12,16p' "$0" >&2; exit 2 ;;
  esac
done
[ -x "$build/bench/make-scenario" ] || { echo "boot_phase: no make-scenario built in $build" >&2; exit 2; }

work=$(mktemp -d /dev/shm/vela-boot-phase.XXXXXX)
trap 'rm -rf "$work"' EXIT

# The benchmark's tree as a platform, with the example's stand-in for the
# reason check, so that its services with a reason start as on the example.
"$build/bench/make-scenario" "$units" "$work/scenario"
mkdir -p "$work/bench-platform/usr/vela/bin"
cp -a "$work/scenario/tree/." "$work/bench-platform/"
cp -a "$top/examples/platform/usr/vela/bin/velasystemctl" "$work/bench-platform/usr/vela/bin/"

# Run inside each booted container: the phase in microseconds, then the
# number of masks in the early directory.
# shellcheck disable=SC2016
measure='inside() { nsenter -t "$VELA_BOOT_PID" -a -r -w "$@"; }
start=$(inside systemctl show -P GeneratorsStartTimestampMonotonic)
finish=$(inside systemctl show -P GeneratorsFinishTimestampMonotonic)
echo $((finish - start)) $(inside find /run/systemd/generator.early -maxdepth 1 -lname /dev/null | wc -l)'

kinds="example:yes example:no bench:yes bench:no"
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
for round in $(seq "$boots"); do
  for kind in $kinds; do
    platform=$top/examples/platform
    [ "${kind%:*}" = example ] || platform=$work/bench-platform
    options=(--build "$build" --platform "$platform")
    [ "${kind#*:}" = yes ] || options+=(--no-generator)
    status=0
    # At the highest priority, as the benchmark runs, so that other work on
    # the machine disturbs the boot less.
    result=$(nice -n -20 "$top/scripts/boot.sh" "${options[@]}" -- bash -c "$measure" 2>"$work/boot.log") || status=$?
    [ "$status" != 77 ] || { cat "$work/boot.log" >&2; exit 77; }
    [ "$status" = 0 ] && [ -n "$result" ] || { echo "boot_phase: a $kind boot failed:" >&2; cat "$work/boot.log" >&2; exit 1; }
    echo "$kind $result" >>"$work/phases"
    echo "boot_phase: round $round, $kind: $result" >&2
  done
done

echo "Machine: $(nproc) cores; load average $load_before before, $(cut -d' ' -f1-3 /proc/loadavg) after; $boots boots of each kind, at nice -20."
echo "Generators' phase: GeneratorsFinishTimestampMonotonic - GeneratorsStartTimestampMonotonic, median (min-max)."
awk -v units="$units" '
function median(kind,    n, i, j, t, a) {
  n = count[kind]
  for (i = 1; i <= n; i++) a[i] = phase[kind, i]
  for (i = 2; i <= n; i++) { t = a[i]; for (j = i - 1; j > 0 && a[j] > t; j--) a[j + 1] = a[j]; a[j + 1] = t }
  low[kind] = a[1]; high[kind] = a[n]
  return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
}
{ phase[$1, ++count[$1]] = $2 / 1000; masks[$1] = $3 }
END {
  printf "%-24s %-24s %-24s %s\n", "platform", "without the generator", "with the generator", "difference"
  split("example bench", platforms, " ")
  for (p = 1; p <= 2; p++) {
    without = median(platforms[p] ":no"); with = median(platforms[p] ":yes")
    printf "%-24s %6.1f ms (%.1f-%.1f)%s %6.1f ms (%.1f-%.1f)%s %+6.1f ms   [masks: %d without, %d with]\n",
      p == 1 ? "example" : "benchmark, " units " units",
      without, low[platforms[p] ":no"], high[platforms[p] ":no"], "   ",
      with, low[platforms[p] ":yes"], high[platforms[p] ":yes"], "   ",
      with - without, masks[platforms[p] ":no"], masks[platforms[p] ":yes"]
  }
}' "$work/phases"
