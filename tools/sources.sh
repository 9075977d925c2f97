#!/bin/sh
# Lists the tree's own files with one of these endings, without build folders: tools/sources.sh ENDING...
# Without git, which an unpacked archive does not have, and which refuses another user's checkout.
cd "$(dirname "$0")/.." || exit 1
for ending in "$@"; do
  find . \( -path './build*' -o -path './.git' -o -name __pycache__ \) -prune -o -type f -name "*$ending" -print
done | sed 's,^\./,,' | sort
