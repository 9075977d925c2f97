#!/bin/sh
# Boots the image in QEMU, logs from logger(1) inside, and reads the line at a collector outside. Needs no network: all
# happens in a namespace of its own, where the syslog port is free.
set -eu
cd "$(dirname "$0")/../.."
tools/install.sh qemu-system-x86 python3 iproute2
examples/image/build.sh build/image
exec unshare --net --user --map-root-user sh -c 'ip link set lo up && exec python3 examples/image/test.py build/image'
