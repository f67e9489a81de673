# Plots the time of operations by the size of the store. Variables: data, picture, style.
set terminal svg noenhanced size 960,520 font "sans-serif,14" background "#F7F7F4"
set output picture
load style
set title "Time of one call by the number of messages stored" textcolor rgb ink
set logscale xy
set xlabel "messages"
set ylabel "microseconds"
set format x "%.0s%c"
set format y "%.0f"
set xrange [*:*]
set offsets graph 0.03, graph 0.03, 0, 0
set yrange [1:*]
set key outside right center reverse Left
colours = "#0072B2 #E69F00 #009E73 #222222 #D55E00 #CC79A7 #56B4E9"
shapes = "7 5 9 13 11 15 6"
columns = words(system("tail -n 1 " . data))
plot for [c=2:columns] data using 1:c with linespoints linewidth 2 pointsize 0.9 \
  linecolor rgb word(colours, c - 1) pointtype int(word(shapes, c - 1)) title columnheader(c)
