#!/bin/sh
# Counts the user-space instructions that the service spends per line, with callgrind: bench/instructions.sh
# Needs root, as compare.sh does. Unlike a time, the figure hardly varies between runs, so small changes show.
set -eu
cd "$(dirname "$0")/.."
tools/install.sh gcc g++ cmake ninja-build python3 valgrind
cmake --preset release >/dev/null
cmake --build build --target syslog -- --quiet
mkdir -p build/bench
gcc -O2 -Wall -Wextra bench/load.c -o build/bench/load
exec unshare --mount --net --pid --fork --mount-proc python3 bench/instructions.py
