#!/bin/sh
# Lists the source files with these endings, without build folders: tools/sources.sh ENDING...
# Does not use git: an unpacked archive has no repository, and git refuses another user's checkout.
cd "$(dirname "$0")/.." || exit 1
for ending in "$@"; do
  find . \( -path './build*' -o -path './.git' -o -name __pycache__ \) -prune -o -type f -name "*$ending" -print
done | sed 's,^\./,,' | sort
