#!/bin/sh
# Fails unless each platform library carries its soname and exports exactly its
# ABI, and the generator needs both by soname, so that any library of the same
# soname can stand in. Arguments: generator, unit library, core library.
set -eu
fail() { echo "$*" >&2; exit 1; }
exports() { nm -DC --defined-only "$1" | awk '$2 ~ /^[TWBD]$/ {$1 = $2 = ""; print substr($0, 3)}' | sort; }
readelf -d "$2" | grep -q 'SONAME.*\[libvelasystemd\.so\.7\]' || fail "$2: no soname libvelasystemd.so.7"
readelf -d "$3" | grep -q 'SONAME.*\[libvelacore\.so\.7\]' || fail "$3: no soname libvelacore.so.7"
readelf -d "$1" | grep -q 'NEEDED.*\[libvelasystemd\.so\.7\]' || fail "the generator does not need libvelasystemd.so.7"
readelf -d "$1" | grep -q 'NEEDED.*\[libvelacore\.so\.7\]' || fail "the generator does not need libvelacore.so.7"
[ "$(exports "$2" | grep -c -E '^(VELASystemd|VELA::Systemd::)')" = 16 ] || fail "unit library: not 16 operations"
! exports "$2" | grep -q -v -E '^(VELASystemd|VELA::Systemd::)' || fail "unit library: exports more"
core=$(exports "$3" | tr '\n' ' ')
[ "$core" = "VLIBCErrGet VLIBCErrSet VLIBCErrorGetFile VLIBCErrorGetLine VLIBCExec VLIBCFileTouch VLIBCProcForkEx " ] ||
    fail "core library exports: $core"
echo "sonames, exports and dependencies as expected"
