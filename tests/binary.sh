#!/bin/sh
# Checks that the release binaries need only libc, are hardened and are small: tests/binary.sh BINARY...
set -u
status=0
require() {
  description=$1
  shift
  "$@" || { echo "$binary: $description" && status=1; }
}
is_small() { [ "$(stat -c %s "$binary")" -le 102400 ]; }
has() { printf '%s\n' "$facts" | grep -qE "$1"; }
lacks() { ! has "$1"; }

for binary in "$@"; do
  facts=$(readelf -hlsdW "$binary") || exit 1
  require "must need nothing but libc" lacks 'NEEDED.*\[lib([^c]|c[^.])'
  require "must be position independent" has 'Type:.*DYN'
  require "must have its relocations read-only" has 'GNU_RELRO'
  require "must be bound at start" has 'BIND_NOW|Flags:.*NOW'
  require "must have no executable stack" lacks 'GNU_STACK.*RWE'
  require "must check its stack" has '__stack_chk_fail'
  require "must use checked libc functions" \
    has '__(vsnprintf|snprintf|memcpy|fprintf|recvfrom|recv|vfprintf|printf)_chk'
  require "must be at most 100 KiB" is_small
done
exit $status
