#!/usr/bin/env bash
# Fails when a binary that the packages ship has lost a hardening feature.
# What the linker decided is read from the binary (hardening-check: position-
# independent executable, stack protector, read-only relocations, immediate
# binding). What the compiler was told is read from the binary's debug
# information in its debug-symbol package, which records the options of every
# compilation unit and the headers whose code was inlined.
# Usage: hardening_check.sh PACKAGE_DIR DEBIAN_CONTROL. Exit status 77: skipped.
set -euo pipefail
. "$(dirname "$0")/binary_packages.sh"
# Options every compilation unit must carry; control-flow protection exists
# on x86 only.
COMPILE_OPTIONS=(-O -fstack-protector-strong -fstack-clash-protection)
X86_COMPILE_OPTIONS=(-fcf-protection)
# glibc's wrappers that only _FORTIFY_SOURCE brings in: a binary compiled
# with it has code of at least one of them in its line table.
FORTIFY_HEADERS='\b(string|strings)_fortified\.h|\b(fcntl|mqueue|poll|select|setjmp|socket|stdio|wchar)2\.h'
debs=$1 control=$2
failures=0
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAILED: $*" >&2; failures=$((failures + 1)); }

# The debug file of ELF file $1, found by its build id below directory $2.
debug_file_of() {
  local id
  id=$(readelf -n "$1" | sed -n 's/^ *Build ID: //p')
  echo "$2/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug"
}

# Checks the compile options and the fortified wrappers of ELF file $1 (as
# shipped) in its debug file $2; $3 is the package's architecture.
check_compiled() {
  local options=("${COMPILE_OPTIONS[@]}") option producers
  case $3 in amd64 | i386) options+=("${X86_COMPILE_OPTIONS[@]}") ;; esac
  producers=$(readelf --debug-dump=info "$2" 2>/dev/null | sed -n 's/.*DW_AT_producer.*): //p')
  [ -n "$producers" ] || { fail "$1: no compilation units in $2"; return; }
  for option in "${options[@]}"; do
    ! grep -v -E -- " $option([ =0-9a-z]|$)" <<<"$producers" >/dev/null ||
      fail "$1: a compilation unit without $option"
  done
  [ "$(readelf --debug-dump=rawline "$2" 2>/dev/null | grep -cE "$FORTIFY_HEADERS")" -gt 0 ] ||
    fail "$1: no fortified function wrapper was compiled in (_FORTIFY_SOURCE)"
}

# Checks every ELF file of package $1 (its .deb and debug-symbol .deb).
check_package() {
  local deb=("$debs/$1"_*.deb) dbgsym=("$debs/$1"-dbgsym_*.deb) tree=$work/$1 file shipped arch
  arch=$(dpkg-deb -f "${deb[0]}" Architecture)
  dpkg-deb -x "${deb[0]}" "$tree"
  [ ! -e "${dbgsym[0]}" ] || dpkg-deb -x "${dbgsym[0]}" "$tree.debug"
  while IFS= read -r -d '' file; do
    readelf -h "$file" >/dev/null 2>&1 || continue
    shipped=${file#"$tree"}
    echo "$1: $shipped"
    hardening-check --nofortify --nocfprotection --quiet "$file" || fail "$shipped: see above"
    [ -e "${dbgsym[0]}" ] || skip "no ${1}-dbgsym_*.deb in $debs: build without DEB_BUILD_OPTIONS=noautodbgsym"
    check_compiled "$shipped" "$(debug_file_of "$file" "$tree.debug")" "$arch"
  done < <(find "$tree" -type f -print0 | sort -z)
}

command -v hardening-check >/dev/null || skip "hardening-check is not installed: run scripts/install-deps.sh"
packages=$(binary_packages "$control")
for package in $packages; do
  compgen -G "$debs/${package}_*.deb" >/dev/null || skip "no ${package}_*.deb in $debs: run scripts/build-packages.sh"
done
work=$(mktemp -d /dev/shm/vela-hardening.XXXXXX)
trap 'rm -rf "$work"' EXIT
for package in $packages; do check_package "$package"; done
[ "$failures" = 0 ] || { echo "$failures hardening failures" >&2; exit 1; }
echo "every shipped binary carries every hardening feature"
