#!/bin/sh
# Builds the service and runs it in the foreground; arguments go to it ("debug" keeps trace messages).
# Ctrl-C ends supervisor and child.
set -eu
cd "$(dirname "$0")"

tools/install.sh g++ cmake ninja-build python3
cmake --preset release -DVELK_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release -- --quiet

echo "Configuration: /flash/conf/kavlune.conf (docs/configuration.md); the service also runs without one."
echo "Listening on:  UDP port 11001."
echo "First line:    python3 examples/peer.py \"link down\"   (in another terminal)"
exec build/syslog "$@"
