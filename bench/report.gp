# Draws the report's plots from the folder that it runs in: the rivals' instructions as multiples of the library's, and
# what an element costs over the number of elements.
set terminal svg size 1400,1000 font "sans,11" noenhanced
set output "report.svg"
set multiplot layout 2,1
set title "Instructions as a multiple of the library's: above 1, the library needs fewer"
set style data histograms
set style histogram clustered gap 1
set style fill solid 0.8 noborder
set logscale y
set xtics rotate by -60
set grid y
set key top right horizontal
set arrow from graph 0, first 1 to graph 1, first 1 nohead lw 1.5
set format y "%g"
rivals = int(system("head -n 1 rivals.dat | wc -w"))
plot for [i = 2:rivals] "rivals.dat" using i:xtic(1) title columnheader(i)
unset arrow
set title "Instructions for each further element"
set logscale xy
set xtics norotate autofreq
set format x "%.0f"
set xlabel "elements"
set key outside right vertical
plot for [i = 0:13] "scale_instructions.dat" index i using 1:2 with linespoints lw 1.5 lt (i % 7 + 1) \
    dt 1 + (i > 6) title columnheader(1)
unset multiplot
