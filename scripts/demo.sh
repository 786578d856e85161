#!/usr/bin/env bash
# Builds the library and runs the demo: a server and a client, each in its own
# process, talking over TCP.
#   bash scripts/demo.sh --pipes    the same conversation over local pipes
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh
cmake -S . -B build >/dev/null
cmake --build build -j"$(nproc)" --target vxbus_demo vxbus_list_tour
./build/examples/vxbus_demo "$@"
