#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Cross-builds the library, its tests and the examples for 64-bit Windows in
# build-windows/, and readies the Wine prefix that runs them.
#   scripts/windows-build.sh [targets...]    all targets when none are named
# Afterwards, to run a program by hand: source build-windows/wine-env.sh first.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh windows
build=build-windows
toolchain="$PWD/cmake/mingw-w64-x86_64.cmake"
mkdir -p "$build"

# GoogleTest from Debian's sources, built once with the cross compiler.
gtest="$PWD/$build/googletest"
if [ ! -f "$gtest/lib/cmake/GTest/GTestConfig.cmake" ]; then
  cmake -S /usr/src/googletest -B "$build/googletest-build" \
    -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$gtest" -DBUILD_GMOCK=OFF >/dev/null
  cmake --build "$build/googletest-build" -j"$(nproc)" >/dev/null
  cmake --install "$build/googletest-build" >/dev/null
fi

# Wine without a display, quiet, in a prefix of this build. The first start
# makes the prefix; mscoree and mshtml are switched off so that it never
# offers to install anything.
cat >"$build/wine-env.sh" <<ENV
export WINEPREFIX="$PWD/$build/wine-prefix"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
ENV
# shellcheck source=/dev/null
source "$build/wine-env.sh"
if [ ! -f "$WINEPREFIX/.vxbus-ready" ]; then
  wineboot -i </dev/null >/dev/null 2>&1
  wineserver -w
  touch "$WINEPREFIX/.vxbus-ready"
fi

# Release: without debug information the cross build takes half the time.
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
  -DGTest_DIR="$gtest/lib/cmake/GTest" -DVXBUS_BUILD_TOOLS=OFF >/dev/null
if [ "$#" -gt 0 ]; then
  cmake --build "$build" -j"$(nproc)" --target "$@"
else
  cmake --build "$build" -j"$(nproc)"
fi
