#!/usr/bin/env bash
# Fails when a binary that the packages ship has lost a hardening feature.
# What the linker decided is read from the binary (hardening-check: position-
# independent executable, stack protector, read-only relocations, immediate
# binding). What the compiler was told is read from the binary's debug
# information in its -dbgsym package, which records the options of every
# compilation unit and the headers whose code was compiled in.
# Usage: hardening_check.sh PACKAGE_DIR DEBIAN_CONTROL. Exit status 77: skipped.
set -euo pipefail
# Options of every compilation unit; control-flow protection exists on x86 only.
COMPILE_OPTIONS=(-O -fstack-protector-strong -fstack-clash-protection)
X86_COMPILE_OPTIONS=(-fcf-protection)
# glibc's headers that only _FORTIFY_SOURCE brings in.
FORTIFY_HEADERS='\b(string|strings)_fortified\.h|\b(fcntl|mqueue|poll|select|setjmp|socket|stdio|wchar)2\.h'
debs=$1 control=$2 failures=0
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAILED: $*" >&2; failures=$((failures + 1)); }

# Checks ELF file $1, shipped as $2, against its debug file found by build id
# below $3; $4 is the package's architecture.
check_compiled() {
  local id options=("${COMPILE_OPTIONS[@]}") option producers
  id=$(readelf -n "$1" | sed -n 's/^ *Build ID: //p')
  local debug=$3/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug
  case $4 in amd64 | i386) options+=("${X86_COMPILE_OPTIONS[@]}") ;; esac
  producers=$(readelf --debug-dump=info "$debug" 2>/dev/null | sed -n 's/.*DW_AT_producer.*): //p')
  [ -n "$producers" ] || { fail "$2: no compilation units in $debug"; return; }
  for option in "${options[@]}"; do
    ! grep -v -E -- " $option([ =0-9a-z]|$)" <<<"$producers" >/dev/null || fail "$2: a compilation unit without $option"
  done
  [ "$(readelf --debug-dump=rawline "$debug" 2>/dev/null | grep -cE "$FORTIFY_HEADERS")" -gt 0 ] ||
    fail "$2: no fortified function wrapper was compiled in (_FORTIFY_SOURCE)"
}

# Checks every ELF file of package $1 (its .deb and -dbgsym .deb).
check_package() {
  local deb=("$debs/$1"_*.deb) dbgsym=("$debs/$1"-dbgsym_*.deb) tree=$work/$1 file
  dpkg-deb -x "${deb[0]}" "$tree"
  while IFS= read -r -d '' file; do
    readelf -h "$file" >/dev/null 2>&1 || continue
    echo "$1: ${file#"$tree"}"
    hardening-check --nofortify --nocfprotection --quiet "$file" || fail "${file#"$tree"}: see above"
    [ -e "${dbgsym[0]}" ] || skip "no $1-dbgsym_*.deb in $debs: build without DEB_BUILD_OPTIONS=noautodbgsym"
    [ -d "$tree.debug" ] || dpkg-deb -x "${dbgsym[0]}" "$tree.debug"
    check_compiled "$file" "${file#"$tree"}" "$tree.debug" "$(dpkg-deb -f "${deb[0]}" Architecture)"
  done < <(find "$tree" -type f -print0 | sort -z)
}

command -v hardening-check >/dev/null || skip "hardening-check is not installed: run scripts/install-deps.sh"
packages=$("$(dirname "$0")/../../scripts/binary-packages.sh" "$control")
for package in $packages; do
  compgen -G "$debs/${package}_*.deb" >/dev/null || skip "no ${package}_*.deb in $debs: run scripts/build-packages.sh"
done
work=$(mktemp -d /dev/shm/vela-hardening.XXXXXX)
trap 'rm -rf "$work"' EXIT
for package in $packages; do check_package "$package"; done
[ "$failures" = 0 ] || { echo "$failures hardening failures" >&2; exit 1; }
echo "every shipped binary carries every hardening feature"
