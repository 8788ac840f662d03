#!/usr/bin/env bash
# Configures and builds the project into the directory given (default: build).
# Extra arguments go to CMake's configure step. VELA_BUILD_TARGETS, when set,
# names the only targets to build.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-"$top/build"}
shift || true
cmake -S "$top" -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
targets=()
for target in ${VELA_BUILD_TARGETS:-}; do
  targets+=(--target "$target")
done
cmake --build "$build_dir" -j "$(nproc)" "${targets[@]}"
