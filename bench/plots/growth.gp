# Plots the time of operations by the size of the store. Variables: data, picture.
set terminal svg noenhanced size 900,560 font "sans-serif,13" background "white"
set output picture
set title "Time of one call by the number of messages stored"
set logscale xy
set xlabel "messages"
set ylabel "microseconds"
set format x "%.0s%c"
set yrange [1:*]
set key outside right top
set grid
columns = words(system("tail -n 1 " . data))
plot for [column=2:columns] data using 1:column with linespoints lw 2 pt 7 ps 0.6 \
  title columnheader(column)
