# gnuplot -c plot.gp SAMPLES.tsv PLOT.png
set datafile separator tab
set terminal pngcairo noenhanced size 1200,1000 font ",10"
set output ARG2
set key outside right width 2
set lmargin 12
set rmargin 28
set grid
set xlabel "minutes"
set autoscale xfix
set offsets graph 0, 0, graph 0.1, 0
minutes(seconds) = seconds / 60
set multiplot layout 4,1
set yrange [0:*]
set ylabel "kB"
plot for [name in "rss_kb pss_kb data_kb"] \
    ARG1 using (minutes(column("seconds"))):name with lines linewidth 2 title name
plot for [name in "rss_anon_kb"] \
    ARG1 using (minutes(column("seconds"))):name with lines linewidth 2 title name
set ylabel "ms"
set logscale y
set yrange [*:*]
plot for [name in "command_ms command_longest_ms ring_ms ring_longest_ms text_pause_ms status_pause_ms"] \
    ARG1 using (minutes(column("seconds"))):name with lines linewidth 2 title name
unset logscale y
set yrange [0:*]
set ylabel "count"
plot for [name in "descriptors threads parts_lost commands_lost"] \
    ARG1 using (minutes(column("seconds"))):name with lines linewidth 2 title name
unset multiplot
