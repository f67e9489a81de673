# What both pictures share. They have their own background, so that they look the same on a light and
# on a dark page. The colours of the points are close to Okabe and Ito's, which colour-blind readers can
# tell apart; points also differ in shape.
ink = "#222222"
set border 3 linecolor rgb ink linewidth 1
set tics nomirror textcolor rgb ink
set xlabel textcolor rgb ink
set ylabel textcolor rgb ink
set key textcolor rgb ink samplen 1.5 spacing 1.25
set grid linecolor rgb "#C9C9C4" linewidth 1 linetype 1
