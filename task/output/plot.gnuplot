# Draws a recording of xcp_daq_task: one panel per variable over the sample time.
#   gnuplot -e "record='run.csv'; picture='run.svg'" plot.gnuplot
# A picture that ends in .png becomes a PNG, any other an SVG. What came before the first timestamp
# has no place on the time axis.

time_of(line) = system(line . " '" . record . "' | cut -d, -f1")
first_line = "sed -n '2,${/^0\\./!{p;q}}'"
names = system("head -n 1 '" . record . "' | tr ',' ' '")
panels = words(names) - 1
if (time_of(first_line) eq "") { exit error record . ": no values to draw" }
first = real(time_of(first_line))
last = real(time_of("tail -n 1"))
values_in(column) = int(system(sprintf("sed 1d '%s' | cut -d, -f%d | grep -c '[0-9]'", record, column)))

size_x = 1000
size_y = 90 * panels + 60
if (strstrt(picture, ".png") > 0) {
    set terminal pngcairo size size_x, size_y font "sans,9"
} else {
    set terminal svg size size_x, size_y font "sans,11" background "white"
}
set output picture
set datafile separator ","

set multiplot layout panels, 1 margins 0.09, 0.83, 0.06, 0.98 spacing 0, 0.015
set grid
set ytics font ",8"
set format x ""
unset key
set xrange [0 : last > first ? last - first : 1]
do for [i = 1:panels] {
    name = word(names, i + 1)
    values = values_in(i + 1)
    if (values == 0) {
        name = name . ": never came"
        set yrange [0:1]
    } else {
        set yrange [*:*]
    }
    if (i == panels) {
        set format x "%g"
        set xlabel "seconds since the first sample" offset 0, 0.7
    }
    set label 1 name at graph 1.01, 0.5 noenhanced
    plot record using ($1 - first):(column(i + 1)) every ::1 with points \
        pointtype 7 pointsize (values > 2000 ? 0.15 : 0.5) linecolor i
}
unset multiplot
