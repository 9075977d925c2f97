#!/bin/sh
# Stress tests of the running service, see bench/stress.py:
#   bench/stress.sh restart|soak|flood|burst|strangers|confirmed|lossy|tool|peers [AMOUNT] [--old BUILD]
set -eu
cd "$(dirname "$0")/.."
tools/install.sh gcc g++ cmake ninja-build python3
cmake --preset release >/dev/null
cmake --build build --target syslog syslogctl -- --quiet
mkdir -p build/bench
gcc -O2 -Wall -Wextra bench/load.c -o build/bench/load
exec python3 bench/stress.py "$@"
