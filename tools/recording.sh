#!/bin/sh
# Records the first five minutes, which tools/transcript.sh plays, with pauses to read in. Writes
# docs/first-five-minutes.svg and, from the same run, docs/first-five-minutes.txt.
set -eu
cd "$(dirname "$0")/.."
if [ "${1:-}" = play ]; then
  PAUSE=1.5 tools/transcript.sh | tee docs/first-five-minutes.txt
  exit
fi
tools/install.sh termtosvg
tools/transcript.sh build
# It takes the end of its standard input for the end of the recording.
input=$(mktemp -u)
mkfifo "$input"
termtosvg docs/first-five-minutes.svg -g 112x32 -D 5000 -t window_frame -c "tools/recording.sh play" <>"$input"
rm "$input"
