#!/usr/bin/env bash
# Builds the library and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh
cmake -S . -B build >/dev/null
cmake --build build -j"$(nproc)" --target vxbus_demo
./build/examples/vxbus_demo
