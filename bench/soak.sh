#!/bin/sh
# See bench/stress.py.
exec "$(dirname "$0")/stress.sh" soak "$@"
