#!/bin/sh
# Records tools/transcript.sh with pauses for the reader. Writes docs/first-five-minutes.svg and, from the same run,
# docs/first-five-minutes.txt.
set -eu
cd "$(dirname "$0")/.."
if [ "${1:-}" = play ]; then
  PAUSE=1.5 tools/transcript.sh | tee docs/first-five-minutes.txt
  exit
fi
tools/install.sh termtosvg
tools/transcript.sh build
# termtosvg stops recording at the end of its standard input, so keep a fifo open there.
input=$(mktemp -u)
mkfifo "$input"
termtosvg docs/first-five-minutes.svg -g 112x32 -D 5000 -t window_frame -c "tools/recording.sh play" <>"$input"
rm "$input"
