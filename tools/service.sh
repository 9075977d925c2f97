#!/bin/bash
# Runs the service tests except those named: tools/service.sh FOLDER [TEST...]. FOLDER is laid out like a build folder.
# Each file is a separate run: under an emulator, all tests together exceed the time limit of one run.
set -u
cd "$(dirname "$0")/.." || exit 1
folder=$1
shift
status=0
for file in tests/service/test_*.py; do
  names=()
  while read -r name; do
    [[ " $* " == *" $name "* ]] || names+=(-k "$(basename "$file" .py).*.$name")
  done < <(grep -oP '^    def \Ktest_\w+' "$file")
  [ ${#names[@]} -gt 0 ] || continue
  python3 tests/service/run.py --binary "$folder/syslog" "${names[@]}" || status=1
done
exit $status
