#!/bin/sh
# Fails unless the library exports exactly the unit library's operations.
set -eu
library="$1"
symbols=$(nm -DC --defined-only "$library" | awk '$2 == "T" || $2 == "W" || $2 == "B" || $2 == "D" {print}')
count=$(printf '%s\n' "$symbols" | grep -c .)
strangers=$(printf '%s\n' "$symbols" | grep -v -E ' (VELASystemd|VELA::Systemd::)' || true)
if [ -n "$strangers" ]; then
    printf 'exported beyond the API:\n%s\n' "$strangers"
    exit 1
fi
if [ "$count" -ne 16 ]; then
    printf 'expected 16 exported operations, found %s\n' "$count"
    exit 1
fi
