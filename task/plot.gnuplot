# Draws a recording of xcp_daq_task: one panel per variable over the sample time.
#   gnuplot -e "record='run.csv'; picture='run.svg'" plot.gnuplot
# A picture that ends in .png becomes a PNG, any other an SVG.

names = system("head -n 1 '" . record . "' | tr ',' ' '")
panels = words(names) - 1
set datafile separator ","
first = real(system("sed -n 2p '" . record . "' | cut -d, -f1"))

size_x = 900
size_y = 90 * panels + 60
if (strstrt(picture, ".png") > 0) {
    set terminal pngcairo size size_x, size_y font "sans,9"
} else {
    set terminal svg size size_x, size_y font "sans,11" background "white"
}
set output picture

set multiplot layout panels, 1 margins 0.12, 0.97, 0.06, 0.98 spacing 0, 0.015
set grid
set ytics font ",8"
set format x ""
unset key
set autoscale xfix
do for [i = 1:panels] {
    if (i == panels) {
        set format x "%g"
        set xlabel "seconds since the first sample" offset 0, 0.7
    }
    set label 1 word(names, i + 1) at graph 0.01, 0.85 front
    plot record using ($1 - first):(column(i + 1)) every ::1 with points pointtype 7 pointsize 0.15 linecolor i
}
unset multiplot
