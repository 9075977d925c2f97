#!/bin/sh
# Builds the service and runs it in the foreground with the arguments given ("debug" keeps trace lines).
# Ctrl-C ends supervisor and child.
set -eu
cd "$(dirname "$0")"

tools/install.sh g++ cmake ninja-build
echo "Building into build/ (about half a minute the first time) ..."
cmake --preset release -DVELK_BUILD_TESTS=OFF >/dev/null
cmake --build build --target all log_c log_cpp event_loop -- --quiet

echo "Configuration: /flash/conf/kavlune.conf (docs/configuration.md); optional."
echo "Listening on:  UDP port 11001."
echo "First line:    build/syslogctl log -l warning -t net \"link down\"   (in another terminal)"
exec build/syslog "$@"
