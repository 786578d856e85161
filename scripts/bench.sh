#!/usr/bin/env bash
# Builds the benchmarks in Release, runs vxbus, raw TCP and ZeroMQ side by
# side over loopback, prints a table of ratios and writes a plot, all under
# build/bench/. Takes about three minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh libzmq3-dev pkg-config gnuplot-nox
out=build/bench
cmake -S . -B "$out" -DCMAKE_BUILD_TYPE=Release -DVXBUS_BUILD_BENCH=ON \
  -DVXBUS_BUILD_TESTS=OFF -DVXBUS_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$out" -j"$(nproc)" --target bench_vxbus bench_raw_tcp bench_zmq >/dev/null
echo "load before the run: $(cut -d' ' -f1-3 /proc/loadavg)"
for peer in vxbus raw_tcp zmq; do
  echo "running $peer ..."
  timeout 300 "$out/bench/bench_$peer" >"$out/$peer.tsv"
done
awk -v plotdata="$out/ratios.dat" -f bench/table.awk \
  "$out/vxbus.tsv" "$out/raw_tcp.tsv" "$out/zmq.tsv" | tee "$out/table.md"
gnuplot -e "data='$out/ratios.dat'; output='$out/bench.svg'" bench/plot.gp
echo "load after the run: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "table: $out/table.md, plot: $out/bench.svg"
