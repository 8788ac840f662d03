# The binary packages that debian/control ($1) declares, one name a line.
# Sourced by the package checks.
binary_packages() {
  sed -n 's/^Package:[[:space:]]*//p' "$1"
}
