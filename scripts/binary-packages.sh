#!/bin/sh
# Prints the binary packages that debian/control declares (or the control
# file given), one name a line.
exec sed -n 's/^Package:[[:space:]]*//p' "${1:-$(dirname "$0")/../debian/control}"
