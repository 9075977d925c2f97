#!/bin/sh
# Builds the tree in two folders, with file times an hour apart, and compares the binaries.
set -eu
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build() {  # FOLDER TIME
  mkdir -p "$work/$1"
  tools/sources.sh "" | tar -c -T - --mtime="$2" | tar -x -C "$work/$1"
  cmake -S "$work/$1" -B "$work/$1/out" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELK_BUILD_TESTS=OFF >"$work/log"
  cmake --build "$work/$1/out" >>"$work/log" || { cat "$work/log"; exit 1; }
}

build here '2 hours ago'
build some/where/else '1 hour ago'
for file in syslog syslogctl client/libvelk.a "client/$(readlink "$work/here/out/client/libvelk.so.1")"; do
  cmp "$work/here/out/$file" "$work/some/where/else/out/$file"
  echo "identical: $file"
done
