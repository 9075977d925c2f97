#!/bin/bash
# Builds everything and runs every test: unit and black-box, in the release and both sanitizer builds.
# Writes into build*/ only, but for Debian packages that it installs when root. Ends with one summary.
set -u
cd "$(dirname "$0")" || exit 1

tools/install.sh g++ cmake ninja-build pkg-config libgtest-dev python3 clang-format clang-tidy clang libclang-rt-dev mandoc || exit 1

passed=0 failed=0 skipped=0
failures=()

# Runs a step; its output is shown when it fails, and kept in build/logs.
mkdir -p build/logs
step() {
  local name=$1 log="build/logs/${1// /-}.log" begin=$SECONDS
  shift
  if "$@" >"$log" 2>&1; then
    passed=$((passed + 1))
    printf 'ok      %-28s %3ds\n' "$name" $((SECONDS - begin))
    grep '^left out:' "$log"
    skipped=$((skipped + $(grep -c '^left out:' "$log")))
  else
    failed=$((failed + 1))
    failures+=("$name")
    printf 'FAILED  %-28s %3ds\n' "$name" $((SECONDS - begin))
    tail -n 60 "$log"
  fi
}

build() { cmake --preset "$1" -DVELK_WERROR="${CI:-OFF}" -DVELK_BUILD_TESTS=ON && cmake --build --preset "$1"; }
folder() { if [ "$1" = release ]; then echo build; else echo "build-$1"; fi; }
unit() { "$(folder "$1")/tests/unit_tests" --gtest_brief=1; }
service() {
  local more=()
  [ "$1" != release ] || [ ! -x build/collectors/syslog-ng ] || more=(--collectors build/collectors)
  python3 tests/service/run.py --binary "$(folder "$1")/syslog" "${more[@]}"
}
sources() { git ls-files '*.h' '*.cpp' '*.c'; }

tools/collectors.sh build/collectors >/dev/null 2>&1 || echo "rsyslog and syslog-ng are not to be had: their tests are left out"
step "format" bash -c "$(declare -f sources); sources | xargs clang-format --dry-run --Werror"
for preset in release asan tsan; do
  step "build $preset" build $preset
  step "unit $preset" unit $preset
  step "service $preset" service $preset
done
step "install" tests/install/run.sh build
step "man pages" bash -c "mandoc -T lint -W warning man/*"
step "build fuzz" bash -c "cmake --preset fuzz -DVELK_WERROR=${CI:-OFF} && cmake --build --preset fuzz"
step "fuzz regressions" fuzz/run.sh 0
step "clang-tidy" bash -c "git ls-files 'app/*.cpp' 'common/*.cpp' 'runtime/*.cpp' 'lib/*.cpp' 'tools/*.cpp' |
  xargs -P 2 -n 4 clang-tidy -p build --quiet"

[ ${#failures[@]} -eq 0 ] || printf 'Failed: %s\n' "${failures[@]}"
echo "$passed passed, $failed failed, $skipped skipped"
[ "$failed" -eq 0 ]
