#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs one of them for a fixed time.
#
#   fuzz/run.sh [--fresh] TARGET SECONDS [libFuzzer options...]
#   fuzz/run.sh --build
#
# TARGET is unit_file, support_table or json_file. The run starts from the seed
# corpus in fuzz/corpus/TARGET and from what earlier runs found, kept in the
# build directory (--fresh forgets those); inputs that crash, leak or hang are
# written to the build directory's artifacts/ and make the run fail. The exit
# status is the fuzzer's: 0 when nothing was found.
#
# Environment: VELA_FUZZ_BUILD, the build directory (default: build-fuzz at the
# top of the clone); VELA_FUZZ_SEED, the random seed (default: 1).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELA_FUZZ_BUILD:-"$top/build-fuzz"}
seed=${VELA_FUZZ_SEED:-1}
targets=(unit_file support_table json_file)

usage() {
  sed -n '2,16s/^# \{0,1\}//p' "$0" >&2
  exit 2
}

build_fuzzers() {
  if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELA_FUZZ=ON -DVELA_TESTS=OFF \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
  fi
  cmake --build "$build" --target fuzzers -j "$(nproc)" >/dev/null
}

fresh=0
if [ "${1:-}" = --build ]; then
  build_fuzzers
  exit 0
fi
if [ "${1:-}" = --fresh ]; then
  fresh=1
  shift
fi
[ $# -ge 2 ] || usage
target=$1
seconds=$2
shift 2
[[ " ${targets[*]} " == *" $target "* ]] || usage
[[ "$seconds" =~ ^[0-9]+$ ]] || usage

build_fuzzers

corpus=$build/corpus/$target
artifacts=$build/artifacts
[ $fresh = 0 ] || rm -rf "$corpus"
mkdir -p "$corpus" "$artifacts"

options=(
  -max_total_time="$seconds"
  -seed="$seed"
  -timeout=10
  -rss_limit_mb=2048
  -print_final_stats=1
  -artifact_prefix="$artifacts/$target-"
)
dictionary=$top/fuzz/$target.dict
[ ! -f "$dictionary" ] || options+=(-dict="$dictionary")

# AddressSanitizer keeps the stack of every allocation for its reports, and
# unwinds it through frame pointers, which the system's JSON library lacks: its
# allocations leave a new, bogus stack nearly every time, and the store of them
# grows without end. Keeping three frames of each keeps that store bounded;
# the stack of an error itself is still complete.
if [ "$target" = json_file ] && [ -z "${ASAN_OPTIONS:-}" ]; then
  export ASAN_OPTIONS=malloc_context_size=3
fi

# New inputs go to the first directory; the seed corpus is only read.
exec "$build/fuzz/${target}_fuzzer" "${options[@]}" "$@" "$corpus" "$top/fuzz/corpus/$target"
