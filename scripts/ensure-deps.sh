#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what a build needs on Debian 12 when it is missing.
#   bash scripts/ensure-deps.sh               the gcc build and the test suite
#   bash scripts/ensure-deps.sh fuzz          and clang with libFuzzer for fuzz/
#   bash scripts/ensure-deps.sh windows       and the MinGW-w64 cross compiler,
#                                             Wine and GoogleTest's sources
#   bash scripts/ensure-deps.sh [KIND] PKG..  and the packages named
set -euo pipefail
packages=(cmake g++ make libgtest-dev pkg-config python3 nats-server libnats-dev)
case "${1:-}" in
  fuzz) packages+=(clang libclang-rt-14-dev); shift ;;
  windows) packages+=(g++-mingw-w64-x86-64-posix wine wine64 googletest); shift ;;
esac
packages+=("$@")
needed=()
for pkg in "${packages[@]}"; do
  dpkg -s "$pkg" >/dev/null 2>&1 || needed+=("$pkg")
done
if [ "${#needed[@]}" -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get -o DPkg::Lock::Timeout=900 update -qq
  apt-get -o DPkg::Lock::Timeout=900 install -y -qq --no-install-recommends "${needed[@]}" >/dev/null
fi
