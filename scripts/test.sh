#!/usr/bin/env bash
# Installs what is missing, builds the project, and runs the whole test suite:
# once in the ordinary build and once built with AddressSanitizer and
# UndefinedBehaviorSanitizer. VELA_SKIP_SANITIZE=1 leaves out the second run.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)

"$top/scripts/install-deps.sh"

"$top/scripts/build.sh" "$top/build"
# The Debian packages for the package checks (tests/install/, tests/packages/),
# with the debug-symbol packages, in which the hardening check reads the
# compiler's options, and without their own test run, which is unused there.
DEB_BUILD_OPTIONS="nocheck" "$top/scripts/build-packages.sh" "$top/build/packages"
# The reproducibility check builds the packages four times more; it runs
# on its own (ctest -L reproducible).
ctest --test-dir "$top/build" --output-on-failure -j "$(nproc)" -LE reproducible

if [ "${VELA_SKIP_SANITIZE:-0}" != 1 ]; then
  "$top/scripts/build.sh" "$top/build-sanitize" -DVELA_SANITIZE=ON
  ctest --test-dir "$top/build-sanitize" --output-on-failure -j "$(nproc)"
fi
