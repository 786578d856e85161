#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the library and runs the whole test suite.
#   scripts/test.sh            plain build
#   scripts/test.sh address    AddressSanitizer with UBSan
#   scripts/test.sh thread     ThreadSanitizer
#   scripts/test.sh windows    cross-built for Windows and run under Wine, then
#                              a Linux process and a Windows one on one bus
set -euo pipefail
cd "$(dirname "$0")/.."
sanitize="${1:-}"
if [ "$sanitize" = windows ]; then
  bash scripts/windows-build.sh
  bash scripts/ensure-deps.sh
  cmake -S . -B build -DVXBUS_WINDOWS_BUILD="$PWD/build-windows" >/dev/null
  cmake --build build -j"$(nproc)" --target linux_windows_tests
  # shellcheck source=/dev/null
  source build-windows/wine-env.sh
  # One Wine server for the whole run instead of one per program, with Wine's
  # own services started here: whatever they inherit stays open as long as
  # they run, and a pipe of CTest's must not be among it.
  wineserver -p </dev/null >/dev/null 2>&1 || true  # one may run already
  wineboot </dev/null >/dev/null 2>&1
  status=0
  ctest --test-dir build-windows --output-on-failure -j2 --timeout 300 </dev/null || status=$?
  ctest --test-dir build -R '^LinuxWindowsTest\.' --output-on-failure --timeout 300 </dev/null ||
    status=$?
  wineserver -k || true
  exit "$status"
fi
bash scripts/ensure-deps.sh
build="build${sanitize:+-$sanitize}"
cmake -S . -B "$build" -DVXBUS_SANITIZE="$sanitize" >/dev/null
cmake --build "$build" -j"$(nproc)"
ctest --test-dir "$build" --output-on-failure -j2 --timeout 300
