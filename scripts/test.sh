#!/usr/bin/env bash
# Installs what is missing, builds the project, and runs the whole test suite:
# once in the ordinary build and once built with AddressSanitizer and
# UndefinedBehaviorSanitizer. VELA_SKIP_SANITIZE=1 leaves out the second run.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)

"$top/scripts/install-deps.sh"

"$top/scripts/build.sh" "$top/build"
# The Debian packages for the install test (tests/install/), without their
# debug-symbol packages and their own test run: neither is used there.
DEB_BUILD_OPTIONS="nocheck noautodbgsym" "$top/scripts/build-packages.sh" "$top/build/packages"
ctest --test-dir "$top/build" --output-on-failure -j "$(nproc)"

if [ "${VELA_SKIP_SANITIZE:-0}" != 1 ]; then
  "$top/scripts/build.sh" "$top/build-sanitize" -DVELA_SANITIZE=ON
  ctest --test-dir "$top/build-sanitize" --output-on-failure -j "$(nproc)"
fi
