# Plots the contenders' times for the same work relative to the store's: a row for each kind of work, a
# point for each other contender. Variables: data, picture, style; rows, the number of kinds of work;
# colours, shapes and lanes of the contenders. Data: a block for each contender, with lines of relative
# time and row; the last block has the rows' names. A lane is the distance from the middle of the row.
set terminal svg noenhanced size 980,820 font "sans-serif,14" background "#F7F7F4"
set output picture
load style
set title "Time for the same work, Corvan = 1" textcolor rgb ink
set logscale x
set xrange [0.001:100]
set yrange [rows + 0.5:0.5]
set xtics ("1/1000" 0.001, "1/100" 0.01, "1/10" 0.1, "1" 1, "10" 10, "100" 100)
set xlabel "← less time than Corvan            more time than Corvan →\n "
set grid noytics xtics
set ytics scale 0
set border 1
set key below vertical maxrows 4 reverse Left
set lmargin 30
set rmargin 3
do for [row=1:rows:2] {
  set object rectangle from graph 0, first row - 0.5 to graph 1, first row + 0.5 \
    behind fillcolor rgb "#ECECE7" linewidth 0
}
set arrow from first 1, graph 0 to first 1, graph 1 nohead linecolor rgb ink linewidth 2
plot keyentry with lines linewidth 2 linecolor rgb ink title "Corvan", \
     for [c=1:words(shapes)] data index c - 1 using 1:($2 + word(lanes, c)) with points \
       pointtype int(word(shapes, c)) pointsize 0.95 linewidth 2.5 linecolor rgb word(colours, c) \
       title columnheader(1), \
     data index words(shapes) using (NaN):1:ytic(2) notitle
