#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the library and runs the demo: a server and a client, each in its own
# process, talking over TCP.
#   bash scripts/demo.sh --pipes              the same conversation over local pipes
#   bash scripts/demo.sh --windows [--pipes]  the demo built for Windows, run under
#                                             Wine: over TCP, or over named pipes
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = --windows ]; then
  shift
  bash scripts/windows-build.sh vxbus_demo vxbus_list_tour
  # shellcheck source=/dev/null
  source build-windows/wine-env.sh
  exec wine build-windows/bin/vxbus_demo.exe "$@"
fi
bash scripts/ensure-deps.sh
cmake -S . -B build >/dev/null
cmake --build build -j"$(nproc)" --target vxbus_demo vxbus_list_tour
./build/examples/vxbus_demo "$@"
