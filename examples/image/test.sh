#!/bin/sh
# Builds the image, boots it in QEMU, logs with logger(1) inside and receives the line outside. The boot runs in a
# network namespace, where the syslog port is free.
set -eu
cd "$(dirname "$0")/../.."
tools/install.sh qemu-system-x86 python3 iproute2
examples/image/build.sh build/image
exec unshare --net --user --map-root-user sh -c 'ip link set lo up && exec python3 examples/image/test.py build/image'
