#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the benchmarks in Release, runs vxbus, raw sockets and ZeroMQ side by
# side over loopback TCP and over the machine's local channel, prints a table
# and the goals, and writes a plot, all under build/bench/. Takes about fifteen
# minutes; run it on a quiet machine.
#   BENCH_TRANSPORT=local  vxbus pipes, unix sockets, ZeroMQ ipc://
#   BENCH_POLL=1           the raw peers busy-poll instead of blocking
#   VXBUS_SPIN_US=0        vxbus does not spin before it sleeps
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/ensure-deps.sh libzmq3-dev pkg-config gnuplot-nox
out=build/bench
cmake -S . -B "$out" -DCMAKE_BUILD_TYPE=Release -DVXBUS_BUILD_BENCH=ON \
  -DVXBUS_BUILD_TESTS=OFF -DVXBUS_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$out" -j"$(nproc)" --target bench_vxbus bench_raw_tcp bench_zmq >/dev/null
echo "load before the run: $(cut -d' ' -f1-3 /proc/loadavg)"
bin="$out/bench"
# run LABEL PROGRAM TRANSPORT POLL SPIN
run() {
  echo "running $1 ..."
  BENCH_TRANSPORT="$3" BENCH_POLL="$4" VXBUS_SPIN_US="$5" timeout 600 "$bin/$2" >"$out/$1.tsv"
}
run vxbus_tcp bench_vxbus tcp 0 50
run vxbus_tcp_nospin bench_vxbus tcp 0 0
run vxbus_pipe bench_vxbus local 0 50
run vxbus_pipe_nospin bench_vxbus local 0 0
run raw_tcp bench_raw_tcp tcp 0 50
run raw_tcp_poll bench_raw_tcp tcp 1 50
run raw_unix bench_raw_tcp local 0 50
run raw_unix_poll bench_raw_tcp local 1 50
run zmq_tcp bench_zmq tcp 0 50
run zmq_ipc bench_zmq local 0 50
# One process with 100 idle sessions, over TCP and over pipes: its CPU time.
echo "running idle ..."
BENCH_TRANSPORT=tcp timeout 600 "$bin/bench_vxbus" idle >"$out/idle.tsv"
BENCH_TRANSPORT=local timeout 600 "$bin/bench_vxbus" idle >>"$out/idle.tsv"
# The one-way rate alone, three times each, for its run-to-run spread.
for peer in vxbus zmq; do
  : >"$out/${peer}_notify3.tsv"
  for round in 1 2 3; do
    echo "running $peer notify, round $round ..."
    BENCH_TRANSPORT=tcp timeout 300 "$bin/bench_$peer" notify |
      awk -v round="$round" '$1 == "notify_us_per_msg" { print "notify_round_" round "\t" $2 }' \
        >>"$out/${peer}_notify3.tsv"
  done
done
awk -v plotdir="$out" -f bench/table.awk \
  "$out"/{vxbus_tcp,vxbus_tcp_nospin,vxbus_pipe,vxbus_pipe_nospin,raw_tcp,raw_tcp_poll}.tsv \
  "$out"/{raw_unix,raw_unix_poll,zmq_tcp,zmq_ipc}.tsv \
  "$out"/{vxbus,zmq}_notify3.tsv "$out/idle.tsv" | tee "$out/table.md"
gnuplot -e "dir='$out'; output='$out/bench.svg'" bench/plot.gp
echo "load after the run: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "table: $out/table.md, plot: $out/bench.svg"
