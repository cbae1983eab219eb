# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# Draws one curve of scripts/bench --plot. It needs the variables curve (a file of points), output_file and name.

set terminal svg size 640,400 font "sans,12" background "white"
set output output_file
set logscale x 10
set grid
unset key
if (name eq "time-over-packages") {
  set title "Time of a run over the number of packages"
  set xlabel "packages"
  set ylabel "milliseconds"
  set logscale y 10
  plot curve using 1:($2/1000) with linespoints linewidth 2 pointtype 7
}
if (name eq "time-over-registry") {
  set title "Time of reading the registry over the number of its records"
  set xlabel "records"
  set ylabel "milliseconds"
  set logscale y 10
  plot curve using 1:($2/1000) with linespoints linewidth 2 pointtype 7
}
if (name eq "memory-over-packages") {
  set title "Peak memory of a run over the number of packages"
  set xlabel "packages"
  set ylabel "MiB"
  set yrange [0:*]
  plot curve using 1:($2/1024) with linespoints linewidth 2 pointtype 7
}
