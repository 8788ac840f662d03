#!/usr/bin/env bash
# The generator's benchmark: for each size, a scenario of that many units, run
# on the scripted platform and on the stand-in unit library, each in a
# bubblewrap sandbox on tmpfs, interleaved with the two floors (the floor
# program alone, and with one plain read of the input first); prints the
# median times, their ratios, the peak memory and the growth with size.
#
# usage: bench/run.sh [--runs N] [--sizes "100 1000 10000"] [--platforms "scripted standin"]
#                     [--build DIR] [--keep]
#   --runs       timed runs of each program per size and platform (default 31)
#   --build      build directory (default: $VELA_BENCH_BUILD, else build-bench at the top)
#   --keep       keep the work directory (scenarios, raw times, listings)
# Runs as root (the sandbox); installs the Debian packages it needs first.
set -euo pipefail

top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELA_BENCH_BUILD:-"$top/build-bench"}
runs=31
sizes="100 1000 10000"
platforms="scripted standin"
keep=0
while [ $# -gt 0 ]; do
    case "$1" in
        --runs) runs=$2; shift 2 ;;
        --sizes) sizes=$2; shift 2 ;;
        --platforms) platforms=$2; shift 2 ;;
        --build) build=$2; shift 2 ;;
        --keep) keep=1; shift ;;
        *) sed -n '8,13p' "$0" >&2; exit 2 ;;
    esac
done

"$top/scripts/install-deps.sh"
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELA_TESTS=ON -DVELA_BENCH=ON >/dev/null
cmake --build "$build" --target bench -j "$(nproc)" >/dev/null

# Everything the runs write lies on tmpfs.
work=$(mktemp -d /dev/shm/vela-bench.XXXXXX)
if [ "$keep" = 1 ]; then
    echo "work directory: $work" >&2
else
    trap 'rm -rf "$work"' EXIT
fi

generator="$build/generator/vela-system-generator"
scripted_library="$build/tests/scripted/libvelascripted.so"
normal=/run/systemd/generator
early=/run/systemd/generator.early
late=/run/systemd/generator.late
# What a run writes, emptied or removed before every run and compared between
# the generator and the floor after the first.
reset=(--clean "$normal" --clean "$early" --clean "$late" --remove /run/velasystemd --remove /run/systemd/system)
compare=(--compare "$normal" --compare "$early" --compare "$late" --compare /run/velasystemd
         --compare /run/systemd/system)

# What the stand-in platform's answers come from, for the floor+read program
# to read: the unit directories (/lib/systemd/system is /usr/lib's on this
# system) and the support table. The scripted platform's come from its table.
standin_inputs=(/etc/systemd/system /run/systemd/system /usr/local/lib/systemd/system /usr/lib/systemd/system
                /usr/vela/etc/unit-support.conf)

# run_platform SIZE PLATFORM: appends "SIZE PLATFORM LABEL ROUND WALL-NS
# MAX-RSS-KIB CPU-NS" lines to $work/times.
run_platform() {
    local size=$1 platform=$2
    local scenario="$work/$size" state="$work/$size/$platform"
    mkdir -p "$state/root" "$state/control"
    cp "$scenario/plan-$platform" "$state/control/plan"
    local environment=() inputs=()
    if [ "$platform" = standin ]; then
        cp -a "$scenario/tree/." "$state/root/"
        for input in "${standin_inputs[@]}"; do inputs+=(--read "$input"); done
    else
        cp "$scenario/table" "$state/control/table"
        # Named through a link: LD_PRELOAD cannot hold a path with a blank.
        ln -sfn "$scripted_library" "$state/control/scripted.so"
        environment=("LD_PRELOAD=/.vela-test/scripted.so" "VELA_TABLE=/.vela-test/table")
        inputs=(--read /.vela-test/table)
    fi
    # At the highest priority, so that other work on the machine disturbs the
    # times less; the generator and the floor get the same.
    nice -n -20 "$top/scripts/vela_sandbox.py" --state "$state" \
        --private /usr/lib/systemd/system --private /usr/local/lib/systemd/system \
        --bind-ro "$build" --timeout 3600 --log "$state/syslog" -- \
        "$build/bench/timed-runs" --runs "$runs" "${reset[@]}" "${compare[@]}" \
        --command generator "${environment[@]}" "$generator" "$normal" "$early" "$late" \
        --command floor "$build/bench/floor" /.vela-test/plan "$normal" "$early" "$late" \
        --command floor+read "$build/bench/floor" "${inputs[@]}" /.vela-test/plan "$normal" "$early" "$late" \
        >"$state/times" || {
        # timed-runs has said why; a tree listing it made lies in $state/root/tmp.
        echo "bench: the $platform run of $size units failed; work directory kept: $work" >&2
        trap - EXIT
        exit 1
    }
    # The scenario is made so that a run logs nothing: a line means that the
    # platform answered otherwise than the scenario says.
    if [ -s "$state/syslog" ]; then
        echo "bench: the generator logged on the $platform platform with $size units:" >&2
        sort "$state/syslog" | uniq -c | sort -rn | head -5 >&2
        echo "bench: work directory kept: $work" >&2
        trap - EXIT
        exit 1
    fi
    sed "s/^/$size $platform /" "$state/times" >>"$work/times"
}

load_before=$(cut -d' ' -f1-3 /proc/loadavg)
: >"$work/times"
for size in $sizes; do
    "$build/bench/make-scenario" "$size" "$work/$size"
    for platform in $platforms; do
        echo "bench: $size units on the $platform platform, $runs runs each ..." >&2
        run_platform "$size" "$platform"
    done
done

echo
echo "Machine: $(nproc) cores; load average $load_before before, $(cut -d' ' -f1-3 /proc/loadavg) after; $runs interleaved runs each."
echo "All runs at nice -20; times are medians of the wall time of one run. Peak RSS is the largest"
echo "resident set of any one process of the program's tree (parent or child) over all runs, from"
echo "wait4(). CPU is user + system time of the program and all its children (median); its ratio"
echo "follows the machine's load less than the wall-time ratio does."
echo
awk -v sizes="$sizes" -v platforms="$platforms" '
function median(key, cpu,    n, i, j, t, a) {
    n = count[key]
    for (i = 1; i <= n; i++) a[i] = cpu ? cpuvalue[key, i] : value[key, i]
    for (i = 2; i <= n; i++) { t = a[i]; for (j = i - 1; j > 0 && a[j] > t; j--) a[j + 1] = a[j]; a[j + 1] = t }
    return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
}
function mib(kib) { return sprintf("%.1f MiB", kib / 1024) }
function verdict(ok) { return ok ? "met" : "MISSED" }
{
    key = $1 SUBSEP $2 SUBSEP $3
    value[key, ++count[key]] = $5
    cpuvalue[key, count[key]] = $7
    if ($6 > rss[key]) rss[key] = $6
}
END {
    ns = split(sizes, size, " "); np = split(platforms, platform, " ")
    name["scripted"] = "scripted"; name["standin"] = "stand-in"
    printf "%8s  %-9s %12s %12s %7s %14s %14s %12s %12s %7s %12s %7s %12s %7s\n", "units", "platform", "generator",
        "floor", "ratio", "gen peak RSS", "floor peak RSS", "gen CPU", "floor CPU", "ratio", "floor+read", "ratio",
        "f+r CPU", "ratio"
    for (i = 1; i <= ns; i++) for (p = 1; p <= np; p++) {
        s = size[i]; pl = platform[p]; k = s SUBSEP pl SUBSEP
        g = median(k "generator", 0); f = median(k "floor", 0); r = median(k "floor+read", 0)
        gc = median(k "generator", 1); fc = median(k "floor", 1); rc = median(k "floor+read", 1)
        gen[s, pl] = g; flo[s, pl] = f; red[s, pl] = r; ratio[s, pl] = g / f; read_ratio[s, pl] = g / r
        peak[s, pl] = rss[k "generator"]
        printf "%8d  %-9s %9.2f ms %9.2f ms %6.2fx %14s %14s %9.2f ms %9.2f ms %6.2fx %9.2f ms %6.2fx %9.2f ms %6.2fx\n",
            s, name[pl], g / 1e6, f / 1e6, g / f, mib(peak[s, pl]), mib(rss[k "floor"]), gc / 1e6, fc / 1e6, gc / fc,
            r / 1e6, g / r, rc / 1e6, gc / rc
    }
    for (p = 1; p <= np; p++) {
        pl = platform[p]
        if (!(((1000, pl) in gen) && ((10000, pl) in gen))) continue
        if (!grown++) print ""
        growth[pl] = gen[10000, pl] / gen[1000, pl]; floor_growth[pl] = flo[10000, pl] / flo[1000, pl]
        printf "growth 1,000 -> 10,000 units, %-9s generator %5.2fx, floor %5.2fx, floor+read %5.2fx\n", name[pl],
            growth[pl], floor_growth[pl], red[10000, pl] / red[1000, pl]
    }
    # The targets hold for the stand-in platform; the scripted one is a test double.
    pl = "standin"
    if (!((100, pl) in gen || (1000, pl) in gen || (10000, pl) in gen)) exit
    print ""
    print "targets (stand-in)"
    for (i = 1; i <= ns; i++) {
        s = size[i]; limit = s < 1000 ? 1.6 : 1.5; read_limit = s < 1000 ? 1.4 : 1.2
        printf "  %5d units at most %.1fx the floor: %s (%.2fx)\n", s, limit, verdict(ratio[s, pl] <= limit), ratio[s, pl]
        printf "  %5d units at most %.1fx the floor+read: %s (%.2fx)\n", s, read_limit,
            verdict(read_ratio[s, pl] <= read_limit), read_ratio[s, pl]
    }
    if (pl in growth)
        printf "  growth 1,000 -> 10,000 at most 0.5 above the floor growth: %s (%.2fx against %.2fx)\n",
            verdict(growth[pl] <= floor_growth[pl] + 0.5), growth[pl], floor_growth[pl]
    if ((10000, pl) in peak)
        printf "  peak RSS at most 6 MiB at 10,000 units: %s (%s)\n", verdict(peak[10000, pl] <= 6 * 1024),
            mib(peak[10000, pl])
}' "$work/times"
