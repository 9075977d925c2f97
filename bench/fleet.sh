#!/bin/sh
# Measures how many lines from many devices a collector writes: bench/fleet.sh rates|bursts, see bench/fleet.py.
set -eu
cd "$(dirname "$0")/.."
tools/install.sh gcc python3
tools/collectors.sh build/collectors
mkdir -p build/bench
gcc -O2 -Wall -Wextra bench/fleet.c -o build/bench/fleet
exec python3 bench/fleet.py "$@"
