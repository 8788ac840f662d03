#!/usr/bin/env bash
# Installs the Debian packages the project needs to build, test and demonstrate
# the generator. Does nothing when all of them are present already.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libjsoncpp-dev libboost-filesystem-dev libboost-system-dev
  libgtest-dev libgmock-dev
  bubblewrap systemd
  clang libclang-rt-14-dev
  dpkg-dev file
  build-essential debhelper man-db groff-base
  python3
  autopkgtest devscripts
  reprotest faketime disorderfs locales sudo
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
