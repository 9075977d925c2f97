#!/bin/sh
# Compares the service with the bare system calls (bench/floor.c) and with other log daemons that do the same work, in
# one run:
#   bench/compare.sh [ROUNDS] [LINES]
# Needs root, for its own namespaces. Installs Debian packages, but only unpacks rsyslog and syslog-ng, which conflict,
# into build/collectors. Builds musl in build-small. Updates docs/benchmarks.md and docs/benchmarks.svg.
set -eu
cd "$(dirname "$0")/.."
tools/install.sh gcc g++ cmake ninja-build python3 busybox strace gnuplot-nox musl-tools
tools/musl.sh "$PWD/build-small/musl"

cmake --preset release >/dev/null
cmake --build build --target syslog -- --quiet
cmake --preset musl -B build-small "-DVELK_MUSL=$PWD/build-small/musl" >/dev/null
cmake --build build-small --target syslog -- --quiet
work=build/bench
mkdir -p $work
for program in floor load; do gcc -O2 -Wall -Wextra -pthread bench/$program.c -o $work/$program; done
tools/collectors.sh build/collectors
exec unshare --mount --net --pid --fork --mount-proc python3 bench/compare.py "$@"
