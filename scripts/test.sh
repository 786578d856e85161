#!/usr/bin/env bash
# Builds the library and runs the whole test suite.
#   scripts/test.sh            plain build
#   scripts/test.sh address    AddressSanitizer with UBSan
#   scripts/test.sh thread     ThreadSanitizer
#   scripts/test.sh windows    cross-built for Windows, run under Wine
set -euo pipefail
cd "$(dirname "$0")/.."
sanitize="${1:-}"
if [ "$sanitize" = windows ]; then
  bash scripts/windows-build.sh
  # shellcheck source=/dev/null
  source build-windows/wine-env.sh
  # One Wine server for the whole run, instead of one start per test program.
  wineserver -p </dev/null >/dev/null 2>&1 || true  # one may run already
  status=0
  ctest --test-dir build-windows --output-on-failure -j2 --timeout 300 </dev/null || status=$?
  wineserver -k || true
  exit "$status"
fi
bash scripts/ensure-deps.sh
build="build${sanitize:+-$sanitize}"
cmake -S . -B "$build" -DVXBUS_SANITIZE="$sanitize" >/dev/null
cmake --build "$build" -j"$(nproc)"
ctest --test-dir "$build" --output-on-failure -j2 --timeout 300
