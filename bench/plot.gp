# Draws the ratios that table.awk wrote: how many times longer vxbus takes
# than raw TCP and than ZeroMQ, per measure, on a log scale.
#   gnuplot -e "data='ratios.dat'; output='bench.svg'" plot.gp
set terminal svg size 900,480 dynamic font "sans,11"
set output output
set title "vxbus time relative to its peers (1 = as fast; lower is better)"
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.8 border -1
set boxwidth 0.9
set logscale y
set yrange [0.05:*]
set grid ytics
set xtics rotate by -35 noenhanced
set key top left
plot data using 2:xtic(1) title "vxbus / raw TCP" linecolor rgb "#c0504d", \
     '' using 3 title "vxbus / ZeroMQ" linecolor rgb "#4f81bd", \
     1 notitle linecolor rgb "black" dashtype 2
