# Plots the contenders' times for the same work, relative to the store's. Variables: data, picture.
set terminal svg noenhanced size 1200,640 font "sans-serif,12" background "white"
set output picture
set title "Time for the same work; Corvan = 1, less is better"
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.8 noborder
set logscale y
set yrange [0.001:*]
set ylabel "times Corvan's"
set xtics rotate by -35
set key outside right top
set grid ytics
columns = words(system("head -n 2 " . data . " | tail -n 1"))
plot for [column=2:columns] data using column:xtic(1) title columnheader(column)
