#!/usr/bin/env bash
# Builds the fuzz targets with clang, then runs TARGET (unit_file, support_table
# or json_file) for SECONDS from its seed corpus and what earlier runs found
# (--fresh forgets those); crashing, leaking or hanging inputs go to artifacts/
# in the build directory ($VELA_FUZZ_BUILD, default build-fuzz) and fail the run.
#   fuzz/run.sh [--fresh] TARGET SECONDS [libFuzzer options...]  |  fuzz/run.sh --build
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELA_FUZZ_BUILD:-"$top/build-fuzz"}
[ -f "$build/CMakeCache.txt" ] || cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELA_FUZZ=ON \
  -DVELA_TESTS=OFF -DVELA_BENCH=OFF -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$build" --target fuzzers -j "$(nproc)" >/dev/null
[ "${1:-}" != --build ] || exit 0
[ "${1:-}" != --fresh ] || { rm -rf "$build/corpus/${2:?}"; shift; }
[[ "${2:-}" =~ ^[0-9]+$ && -f "$top/fuzz/${1}_fuzzer.cpp" ]] || { sed -n '2,6s/^# \{0,1\}//p' "$0" >&2; exit 2; }
target=$1 seconds=$2
shift 2
mkdir -p "$build/corpus/$target" "$build/artifacts"
# The JSON library has no frame pointers: AddressSanitizer would keep a new,
# bogus allocation stack nearly every time; three frames keep that store bounded.
[ "$target" != json_file ] || export ASAN_OPTIONS=${ASAN_OPTIONS:-malloc_context_size=3}
# New inputs go to the first directory; the seed corpus is only read.
exec "$build/fuzz/${target}_fuzzer" -max_total_time="$seconds" -seed="${VELA_FUZZ_SEED:-1}" -timeout=10 \
  -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$build/artifacts/$target-" \
  -dict="$top/fuzz/$target.dict" "$@" "$build/corpus/$target" "$top/fuzz/corpus/$target"
