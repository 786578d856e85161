#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the libFuzzer harnesses of fuzz/ with clang (ASan and UBSan
# throughout) and runs each for SECONDS seconds (default 60).
#   bash scripts/fuzz.sh [SECONDS]
# Every program named *_fuzzer in the fuzz build is run, on the seed corpus
# that vxbus_fuzz_seeds writes for it plus what earlier runs found
# (build-fuzz/corpus/<name>). A crash, leak or time-out fails the script and
# leaves its input as build-fuzz/artifacts/<name>/crash-*.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
bash scripts/ensure-deps.sh fuzz
build=build-fuzz
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DVXBUS_FUZZ=ON \
  -DVXBUS_BUILD_TESTS=OFF -DVXBUS_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
rm -rf "$build/seeds"
"$build/fuzz/vxbus_fuzz_seeds" "$build/seeds"
status=0
for fuzzer in "$build"/fuzz/*_fuzzer; do
  name="$(basename "$fuzzer" _fuzzer)"
  corpus="$build/corpus/$name"
  artifacts="$build/artifacts/$name"
  mkdir -p "$corpus" "$artifacts" "$build/seeds/$name"
  echo "== $name: ${seconds}s"
  if ! "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="$artifacts/" -print_final_stats=1 \
      "$corpus" "$build/seeds/$name" 2>"$build/$name.log"; then
    tail -n 60 "$build/$name.log"
    status=1
  fi
  grep -E '^stat::number_of_executed_units|^Done' "$build/$name.log" || true
done
exit "$status"
