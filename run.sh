#!/bin/sh
# Builds the service and runs it in the foreground with the arguments given ("debug" logs trace messages).
# Ctrl-C ends supervisor and child.
set -eu
cd "$(dirname "$0")"

if grep -qs '^ *[0-9]*: [0-9A-F]*:2AF9 ' /proc/net/udp; then
  echo "UDP port 11001 is in use, probably by another syslog. End that first; syslogctl status shows it." >&2
  exit 1
fi
if [ -d build ] && [ ! -w build ]; then
  echo "build/ belongs to another user. Remove it first." >&2
  exit 1
fi
tools/install.sh g++ cmake ninja-build make  # GCC's link-time optimization runs make
echo "Building into build/ (about half a minute the first time) ..."
cmake --preset release -DVELK_BUILD_TESTS=OFF >/dev/null
cmake --build build --target all log_c log_cpp event_loop -- --quiet

echo "Configuration: /flash/conf/kavlune.conf (docs/configuration.md); optional."
echo "Listening on:  UDP port 11001."
echo "Try it:        build/syslogctl log -l warning -t net \"link down\"   (in another terminal)"
exec build/syslog "$@"
