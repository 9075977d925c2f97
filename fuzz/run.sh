#!/bin/bash
# Fuzzes each target for SECONDS, as many at once as processors: fuzz/run.sh SECONDS [TARGET...]
# Starts from seeds, regressions and the corpus of earlier runs (build-fuzz/corpus). Writes failing inputs to
# build-fuzz/found; copy them to fuzz/regressions/TARGET. 0 seconds: only replays seeds and regressions.
set -eu
cd "$(dirname "$0")/.."

export seconds=${1:?usage: fuzz/run.sh SECONDS [TARGET...]}
shift
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -- --quiet
mkdir -p build-fuzz/found
[ ! -w /dev/shm ] || export TMPDIR=/dev/shm  # fuzzing with files is much faster in memory

run() {
  local name=$1 log=build-fuzz/$1.log
  local options=(-timeout=60 -artifact_prefix="build-fuzz/found/$name-" -print_final_stats=1)
  local folders=()
  for folder in "fuzz/seeds/$name" "fuzz/regressions/$name"; do [ ! -d "$folder" ] || folders+=("$folder"); done
  if [ "$seconds" -eq 0 ]; then
    options+=(-runs=0)
  else
    options+=(-max_total_time="$seconds")
    [ ! -f "fuzz/$name.dict" ] || options+=(-dict="fuzz/$name.dict")
    mkdir -p "build-fuzz/corpus/$name"
    folders=("build-fuzz/corpus/$name" "${folders[@]}")
  fi
  if ! "build-fuzz/fuzz/$name" "${options[@]}" "${folders[@]}" >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "$name: FAILED, see $log"
    return 1
  fi
  echo "$name: $(grep -a -E 'DONE' "$log" | tail -n 1)"
}
export -f run

if [ $# -gt 0 ]; then printf '%s\n' "$@"; else basename -s .cpp fuzz/*.cpp | grep -vx Abort; fi |
  xargs -P "$(nproc)" -I NAME bash -c 'run NAME'
