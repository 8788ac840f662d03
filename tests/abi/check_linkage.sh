#!/bin/sh
# Fails unless each platform library carries its soname and the generator
# needs both by soname, so that any library of the same soname can stand in.
set -eu
generator=$1
unit_library=$2
core_library=$3

fail() {
    echo "$*" >&2
    exit 1
}

readelf -d "$unit_library" | grep -q 'SONAME.*\[libvelasystemd\.so\.7\]' ||
    fail "$unit_library has no soname libvelasystemd.so.7"
readelf -d "$core_library" | grep -q 'SONAME.*\[libvelacore\.so\.7\]' ||
    fail "$core_library has no soname libvelacore.so.7"
for soname in libvelasystemd.so.7 libvelacore.so.7; do
    readelf -d "$generator" | grep -q "NEEDED.*\[$soname\]" || fail "the generator does not need $soname"
    ldd "$generator" | grep -q "^[[:space:]]*$soname => /" || fail "ldd does not resolve $soname"
done
echo "sonames and dependencies as expected"
