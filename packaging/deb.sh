#!/bin/sh
# Builds Debian's package for this machine in build-deb/: packaging/deb.sh [CPACK-OPTION...]
set -eu
cd "$(dirname "$0")/.."
tools/install.sh g++ cmake ninja-build dpkg-dev file
cmake --preset release -B build-deb -DCMAKE_INSTALL_PREFIX=/usr -DVELK_BUILD_TESTS=OFF >/dev/null
cmake --build build-deb -- --quiet
cd build-deb
cpack "$@"
