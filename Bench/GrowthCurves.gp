# The growth curves of the ERST steps, drawn by 'make bench-curves' from the
# data bench.py writes (columns: records, then instructions, flash
# operations and modeled flash ms of write, read, clear, enumeration,
# discovery, defragmentation, then of the same steps with record-index).
# A step keeps its colour; with record-index its line is dashed.
set terminal pngcairo size 1500,560 font ",10"
set output output
set multiplot layout 1,3 title "ERST steps against the number of records in the store (production print level; dashed: with record-index)"
set key top left
set grid
set xlabel "records in the store"
set logscale y
set format y "10^{%L}"
steps = "write read clear enumeration discovery defragmentation"

set title "instructions (callgrind)"
plot for [i=1:6] data using 1:(column(3*i-1)) with linespoints lc i title word(steps, i), \
     for [i=1:6] data using 1:(column(3*i+17)) with linespoints lc i dashtype 2 notitle, \
     cpu_budget with lines dashtype 3 lc rgb "black" title "150 µs of CPU at 3 GHz (one SMI)"

set title "flash operations"
plot for [i=1:6] data using 1:(column(3*i)) with linespoints lc i title word(steps, i), \
     for [i=1:6] data using 1:(column(3*i+18)) with linespoints lc i dashtype 2 notitle

set title "modeled flash time (ms)"
plot for [i=1:6] data using 1:(column(3*i+1)) with linespoints lc i title word(steps, i), \
     for [i=1:6] data using 1:(column(3*i+19)) with linespoints lc i dashtype 2 notitle, \
     1 with lines dashtype 3 lc rgb "black" title "1 ms of flash"
unset multiplot
