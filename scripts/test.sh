#!/usr/bin/env bash
# Builds the library and runs the whole test suite.
#   scripts/test.sh            plain build
#   scripts/test.sh address    AddressSanitizer with UBSan
#   scripts/test.sh thread     ThreadSanitizer
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh
sanitize="${1:-}"
build="build${sanitize:+-$sanitize}"
cmake -S . -B "$build" -DVXBUS_SANITIZE="$sanitize" >/dev/null
cmake --build "$build" -j"$(nproc)"
ctest --test-dir "$build" --output-on-failure -j2 --timeout 300
