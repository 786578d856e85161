#!/usr/bin/env bash
# Installs what a build needs on Debian 12 when it is missing.
#   scripts/ensure-deps.sh            the native Linux build
#   scripts/ensure-deps.sh windows    also the MinGW-w64 cross compiler, Wine,
#                                     and GoogleTest's sources for the cross build
set -euo pipefail
packages=(cmake g++ make libgtest-dev)
if [ "${1:-}" = windows ]; then
  packages+=(g++-mingw-w64-x86-64-posix wine wine64 googletest)
fi
needed=()
for pkg in "${packages[@]}"; do
  dpkg -s "$pkg" >/dev/null 2>&1 || needed+=("$pkg")
done
if [ "${#needed[@]}" -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get -o DPkg::Lock::Timeout=900 update -qq
  apt-get -o DPkg::Lock::Timeout=900 install -y -qq --no-install-recommends "${needed[@]}" >/dev/null
fi
