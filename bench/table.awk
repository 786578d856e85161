# Joins the result lines of the three benchmark programs into one table of
# ratios, and checks the targets of the performance work.
#   awk -v plotdata=ratios.dat -f table.awk vxbus.tsv raw_tcp.tsv zmq.tsv
# writes the ratios that both peers have to `plotdata` for plot.gp.
# Every measure is a time, so a ratio above 1 means vxbus is slower.
BEGIN { FS = "\t" }
FNR == 1 { peer++ }
{
  if (peer == 1) order[++count] = $1
  value[peer, $1] = $2
}

function has(p, name) { return (p, name) in value }
function cell(p, name) { return has(p, name) ? sprintf("%.3f", value[p, name]) : "-" }
function ratio(name, p) {
  return has(1, name) && has(p, name) && value[p, name] > 0 ? sprintf("%.2f", value[1, name] / value[p, name]) : "-"
}
function check(what, ok, shown) {
  printf "| %s | %s | %s |\n", what, shown, ok ? "met" : "not met"
}

END {
  print "| measure | vxbus | raw TCP | ZeroMQ | vxbus / raw | vxbus / ZeroMQ |"
  print "|---|---:|---:|---:|---:|---:|"
  for (i = 1; i <= count; i++) {
    name = order[i]
    printf "| %s | %s | %s | %s | %s | %s |\n", name, cell(1, name), cell(2, name), cell(3, name),
           ratio(name, 2), ratio(name, 3)
    if (plotdata != "" && ratio(name, 2) != "-" && ratio(name, 3) != "-")
      printf "%s %s %s\n", name, ratio(name, 2), ratio(name, 3) > plotdata
  }
  print ""
  print "| target | measured | |"
  print "|---|---:|---|"
  call = value[1, "call_small_median_us"]
  check("call median <= 2.5 x raw", call <= 2.5 * value[2, "call_small_median_us"], ratio("call_small_median_us", 2))
  check("call median <= 0.6 x ZeroMQ", call <= 0.6 * value[3, "call_small_median_us"], ratio("call_small_median_us", 3))
  bulk = value[2, "bulk_64MiB_ms"] / value[1, "bulk_64MiB_ms"]
  check("64 MiB call >= 65% of raw bandwidth", bulk >= 0.65, sprintf("%.0f%%", 100 * bulk))
  notify = value[3, "notify_us_per_msg"] / value[1, "notify_us_per_msg"]
  check("notify >= 50% of ZeroMQ rate", notify >= 0.5, sprintf("%.0f%%", 100 * notify))
  check("disconnect < 100 ms", value[1, "disconnect_max_ms"] < 100, cell(1, "disconnect_max_ms") " ms")
  check("shutdown with pipe listener < 200 ms", value[1, "shutdown_pipe_ms"] < 200, cell(1, "shutdown_pipe_ms") " ms")
}
