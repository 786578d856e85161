# SPDX-License-Identifier: MIT
# Joins the result lines of the benchmark runs into one table, checks the
# goals of the performance work, and writes one data file per group of
# measures for plot.gp.
#   awk -v plotdir=DIR -f table.awk RUN.tsv ...
# Each file is one run, named after it (vxbus_pipe.tsv is the run
# "vxbus_pipe"); its lines are "measure<TAB>value". The runs "raw_tcp_poll"
# and "raw_unix_poll" are the physical limit: both sides busy-poll their
# receives, so no wake-up is in their round trips.
BEGIN { FS = "\t" }
FNR == 1 {
  label = FILENAME
  sub(/.*\//, "", label)
  sub(/\.tsv$/, "", label)
  runs[++runCount] = label
}
{
  if (!(($1) in seen)) { seen[$1] = 1; order[++count] = $1 }
  value[label, $1] = $2
}

function has(run, name) { return (run, name) in value }
function cell(run, name) { return has(run, name) ? sprintf("%.3f", value[run, name]) : "-" }
function fraction(a, b) { return b > 0 ? a / b : 0 }
function check(what, known, ok, shown) {
  printf "| %s | %s | %s |\n", what, known ? shown : "-", !known ? "not measured" : ok ? "met" : "not met"
}
# The middle of the three one-way rounds of a run.
function median3(run,    a, b, c) {
  a = value[run, "notify_round_1"]; b = value[run, "notify_round_2"]; c = value[run, "notify_round_3"]
  return a + b + c - (a < b ? (a < c ? a : c) : (b < c ? b : c)) - (a > b ? (a > c ? a : c) : (b > c ? b : c))
}
function spread3(run) {
  return sprintf("%.3f / %.3f / %.3f", value[run, "notify_round_1"], value[run, "notify_round_2"],
                 value[run, "notify_round_3"])
}

# One group's data file: a line per measure, a column per run that has it,
# each value turned into the group's unit by `how`.
function group(file, names, how,    n, list, i, r, k, used, line, v) {
  if (plotdir == "") return
  file = plotdir "/" file ".dat"
  n = split(names, list, " ")
  # Only the runs that measured something of the group get a column.
  k = 0
  for (r = 1; r <= runCount; r++)
    for (i = 1; i <= n; i++)
      if (has(runs[r], list[i])) { used[++k] = runs[r]; break }
  line = "measure"
  for (r = 1; r <= k; r++) line = line " " used[r]
  print line > file
  for (i = 1; i <= n; i++) {
    line = list[i]
    # The unit is the panel's: a converted measure loses its own.
    if (how == "per_second_mib") sub(/_ms$/, "", line)
    if (how == "kilo_rate") line = "notify_rate"
    for (r = 1; r <= k; r++) {
      if (!has(used[r], list[i])) { line = line " -"; continue }
      v = value[used[r], list[i]]
      if (how == "per_second_mib") v = fraction(substr(list[i], 6) + 0, v / 1000)
      if (how == "kilo_rate") v = fraction(1000, v)
      line = line " " v
    }
    print line > file
  }
  close(file)
}

END {
  header = "| measure |"
  rule = "|---|"
  for (r = 1; r <= runCount; r++) { header = header " " runs[r] " |"; rule = rule "---:|" }
  print header
  print rule
  for (i = 1; i <= count; i++) {
    line = "| " order[i] " |"
    for (r = 1; r <= runCount; r++) line = line " " cell(runs[r], order[i]) " |"
    print line
  }

  print ""
  print "| goal | measured | |"
  print "|---|---:|---|"
  pipe = value["vxbus_pipe", "call_small_median_us"]
  unixPoll = value["raw_unix_poll", "call_small_median_us"]
  check("pipe call median <= 2.5 x polling raw unix socket", pipe && unixPoll,
        pipe <= 2.5 * unixPoll, sprintf("%.2f x", fraction(pipe, unixPoll)))
  pipe99 = value["vxbus_pipe", "call_small_p99_us"]
  check("pipe call p99 <= 3 x its median", pipe && pipe99, pipe99 <= 3 * pipe,
        sprintf("%.2f x", fraction(pipe99, pipe)))
  pipeNotify = value["vxbus_pipe", "notify_us_per_msg"]
  tcpNotify = value["vxbus_tcp", "notify_us_per_msg"]
  ipcNotify = value["zmq_ipc", "notify_us_per_msg"]
  check("pipe one-way rate >= TCP one-way rate", pipeNotify && tcpNotify,
        pipeNotify <= tcpNotify, sprintf("%.2f x", fraction(tcpNotify, pipeNotify)))
  check("pipe one-way rate >= ZeroMQ ipc:// PUSH/PULL", pipeNotify && ipcNotify,
        pipeNotify <= ipcNotify, sprintf("%.2f x", fraction(ipcNotify, pipeNotify)))
  tcp = value["vxbus_tcp", "call_small_median_us"]
  tcpPoll = value["raw_tcp_poll", "call_small_median_us"]
  check("TCP call median <= 2 x polling raw TCP", tcp && tcpPoll, tcp <= 2 * tcpPoll,
        sprintf("%.2f x", fraction(tcp, tcpPoll)))
  known = has("vxbus_notify3", "notify_round_3") && has("zmq_notify3", "notify_round_3")
  ours = known ? median3("vxbus_notify3") : 0
  theirs = known ? median3("zmq_notify3") : 0
  check("TCP one-way rate >= ZeroMQ PUSH/PULL (median of three)", known, ours <= theirs,
        sprintf("%.2f x (us per message, vxbus %s, ZeroMQ %s)", fraction(theirs, ours),
                spread3("vxbus_notify3"), spread3("zmq_notify3")))
  split("vxbus_pipe vxbus_tcp", callers, " ")
  for (c = 1; c <= 2; c++) {
    cpu = value[callers[c], "call_small_client_cpu_us"]
    wall = value[callers[c], "call_small_wall_us"]
    check("caller CPU per call <= 1.5 x its wall time, " callers[c], cpu && wall,
          cpu <= 1.5 * wall, sprintf("%.2f x", fraction(cpu, wall)))
  }
  # has() before value[]: reading a missing entry would make it, as 0.
  split("idle100_cpu_percent idle100_pipe_cpu_percent", idleRows, " ")
  split("TCP pipes", idleOver, " ")
  for (c = 1; c <= 2; c++) {
    known = has("idle", idleRows[c])
    idle = known ? value["idle", idleRows[c]] : 0
    check("idle process with 100 sessions < 1% of a core, " idleOver[c], known, idle < 1,
          sprintf("%.3f%%", idle))
  }
  bulk = fraction(value["raw_tcp", "bulk_64MiB_ms"], value["vxbus_tcp", "bulk_64MiB_ms"])
  check("64 MiB call >= 65% of raw TCP bandwidth", bulk > 0, bulk >= 0.65, sprintf("%.0f%%", 100 * bulk))
  check("disconnect < 100 ms", has("vxbus_tcp", "disconnect_max_ms"),
        value["vxbus_tcp", "disconnect_max_ms"] < 100, cell("vxbus_tcp", "disconnect_max_ms") " ms")
  check("shutdown with pipe listener < 200 ms", has("vxbus_tcp", "shutdown_pipe_ms"),
        value["vxbus_tcp", "shutdown_pipe_ms"] < 200, cell("vxbus_tcp", "shutdown_pipe_ms") " ms")

  group("round_trips", "call_small_median_us call_small_p99_us call_small_p999_us call_64KiB_median_us", "")
  group("bandwidth", "bulk_1MiB_ms bulk_16MiB_ms bulk_64MiB_ms", "per_second_mib")
  group("one_way", "notify_us_per_msg", "kilo_rate")
  group("connects", "connect_ms reconnect_ms disconnect_ms shutdown_ms", "")
  group("cpu", "call_small_client_cpu_us call_small_server_cpu_us notify_client_cpu_us notify_server_cpu_us", "")
}
