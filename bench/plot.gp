# SPDX-License-Identifier: MIT
# Draws the data files that table.awk wrote, one panel per group of measures,
# each in its own unit, with a bar per run.
#   gnuplot -e "dir='build/bench'; output='bench.svg'" plot.gp
set terminal svg size 1400,1900 dynamic font "sans,11"
set output output
set datafile missing "-"
set style data histograms
set style histogram clustered gap 2
set style fill solid 0.85 border -1
set boxwidth 0.9
set grid ytics
set xtics nomirror noenhanced scale 0 font ",11"
set key outside right top vertical noenhanced font ",10"
set bmargin 4
set multiplot layout 5,1 title "vxbus beside raw sockets and ZeroMQ (bench.sh, one run)"

# Every panel plots columns 2 and up: one bar per run, titled by the run.
panel(file) = dir . "/" . file . ".dat"
columns(file) = int(system("head -1 '" . panel(file) . "' | wc -w"))
# One colour per run, the same in every panel as long as the runs are.
colors = "#c0504d #e6a0a0 #4f81bd #a6c1e6 #404040 #000000 #9bbb59 #4e6b1f #8064a2 #f79646 #4bacc6 #7f7f7f"

set title "Round trips, small call (median, p99, p99.9) and a 64 KiB call: microseconds, lower is better"
set logscale y
set ylabel "us"
plot for [i=2:columns("round_trips")] panel("round_trips") using i:xtic(1) title columnheader(i) linecolor rgb word(colors, i - 1)

set title "Bandwidth of one large call: MiB/s, higher is better"
unset logscale y
set yrange [0:*]
set ylabel "MiB/s"
plot for [i=2:columns("bandwidth")] panel("bandwidth") using i:xtic(1) title columnheader(i) linecolor rgb word(colors, i - 1)

set title "One-way rate, small notifications: thousand messages per second, higher is better"
set ylabel "k msg/s"
plot for [i=2:columns("one_way")] panel("one_way") using i:xtic(1) title columnheader(i) linecolor rgb word(colors, i - 1)

set title "Connect and disconnect: milliseconds, lower is better"
set logscale y
set yrange [*:*]
set ylabel "ms"
plot for [i=2:columns("connects")] panel("connects") using i:xtic(1) title columnheader(i) linecolor rgb word(colors, i - 1)

set title "CPU time per message on each side (getrusage): microseconds, lower is better"
unset logscale y
set yrange [0:*]
set ylabel "us CPU"
plot for [i=2:columns("cpu")] panel("cpu") using i:xtic(1) title columnheader(i) linecolor rgb word(colors, i - 1)

unset multiplot
