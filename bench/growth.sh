#!/bin/sh
# Charts the cost of one call in the receive thread for a growing number of peers: bench/growth.sh
# Prints the figures in ns and writes docs/growth.svg.
set -eu
cd "$(dirname "$0")/.."
tools/install.sh g++ cmake ninja-build libbenchmark-dev gnuplot-nox
cmake --preset bench >/dev/null
cmake --build --preset bench -- --quiet
figures=build-bench/growth
build-bench/bench/micro --benchmark_filter=ReceiveAmong --benchmark_format=csv 2>/dev/null |
  sed -n 's|^"ReceiveAmong/admitted:\([0-9]*\)/known:\([0-9]*\)",[0-9]*,[^,]*,\([^,]*\),ns.*|\1 \2 \3|p' >$figures
awk '$1 == 0 && $2 > 0 { print $2, $3 }' $figures >$figures.known
awk '$1 > 0 { print $1, $3 }' $figures >$figures.admitted
for kind in known admitted; do sed "s/^/$kind: /" $figures.$kind; done
gnuplot <<'END'
set terminal svg size 560,300 font "sans,11" background "white"
set output "docs/growth.svg"
set logscale xy
set xlabel "other peers"
set ylabel "ns per call"
set yrange [10:*]
set format "10^{%L}"
set key left top
plot "build-bench/growth.admitted" with linespoints title "admitted, so relayed to", \
     "build-bench/growth.known" with linespoints title "only known"
END
