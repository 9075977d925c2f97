#!/bin/bash
# Tests the running service without some of its tests, each file in a run of its own (emulated, all together would
# take longer than one run may): tools/service.sh FOLDER [TEST...]. The folder has what a build folder has.
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
