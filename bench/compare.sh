#!/bin/sh
# Compares the service with a bare floor and with other log daemons doing the same work, all in one run:
#   bench/compare.sh [ROUNDS] [LINES]
# Needs root (a network and mount namespace of its own). Installs Debian packages; the daemon that conflicts with
# another one's package is only unpacked, into build/bench. Writes docs/benchmarks.md and docs/benchmarks.svg.
set -eu
cd "$(dirname "$0")/.."
tools/install.sh gcc g++ cmake ninja-build python3 rsyslog busybox strace gnuplot-nox libglib2.0-0 libjson-c5

cmake --preset release >/dev/null
cmake --build --preset release --target syslog -- --quiet
work=build/bench
mkdir -p $work
for program in floor load; do gcc -O2 -Wall -Wextra bench/$program.c -o $work/$program; done
if [ ! -d $work/syslog-ng/usr ]; then
  mkdir -p $work/syslog-ng
  (cd $work/syslog-ng &&
    apt-get download -qq syslog-ng-core libivykis0 libnet1 libwrap0 libpcre3 >/dev/null 2>&1 &&
    for package in *.deb; do dpkg -x "$package" .; done)
fi
exec unshare --mount --net --pid --fork --mount-proc python3 bench/compare.py "$@"
