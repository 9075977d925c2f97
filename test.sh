#!/bin/bash
# Builds, tests and checks the tree: unit and service tests in the release and both sanitizer builds, and more.
# "./test.sh cross" tests other processors under an emulator, "static" the statically linked executables, "deb" the
# Debian package in a container, "image" a whole device in a virtual machine.
# Writes only to build*/ and temporary folders. As root it also installs missing Debian packages. Ends with a summary.
set -u
cd "$(dirname "$0")" || exit 1
[ "${1:-}" != cross ] || exec tools/cross.sh "${@:2}"
[ "${1:-}" != static ] || exec tools/static.sh
[ "${1:-}" != deb ] || exec packaging/test-deb.sh
[ "${1:-}" != image ] || exec examples/image/test.sh

tools/install.sh g++ cmake ninja-build libgtest-dev python3 clang-format clang-tidy || exit 1

passed=0 failed=0 skipped=0
failures=()
limit=900  # seconds a step may take, several times what the longest needs
trap 'jobs -p | sed s/^/-/ | xargs -r kill -KILL --' EXIT  # if interrupted; timeout(1) makes each step a process group

# Runs a step and keeps its output in build/logs. If the step fails or hangs, prints the end of the output.
# A step that says "left out: all" has not run, so it is not counted as passed.
mkdir -p build/logs
step() {
  local name=$1 log="build/logs/${1// /-}.log" begin=$SECONDS
  shift
  timeout -s KILL $limit bash -c '"$@"' - "$@" >"$log" 2>&1 &
  if wait $!; then
    if ! grep -q '^left out: all ' "$log"; then
      passed=$((passed + 1))
      printf 'ok      %-28s %3ds\n' "$name" $((SECONDS - begin))
    fi
    grep '^left out:' "$log"
    skipped=$((skipped + $(grep -c '^left out:' "$log")))
  else
    [ $? -ne 137 ] || echo "Killed: no end within $limit s, or out of memory." >>"$log"
    failed=$((failed + 1))
    failures+=("$name")
    printf 'FAILED  %-28s %3ds\n' "$name" $((SECONDS - begin))
    grep -A 15 ': Failure$' "$log" | head -n 60  # of unit tests
    tail -n 60 "$log"
  fi
}

# Runs a step that needs more packages, or leaves it out if they cannot be installed.
step_with() {
  local packages=$1
  shift
  # shellcheck disable=SC2086  # a list of words
  if tools/install.sh $packages >build/logs/install.log 2>&1; then
    step "$@"
  else
    echo "left out: $1: needs $packages"
    skipped=$((skipped + 1))
  fi
}

build() { cmake --preset "$1" -DVELK_WERROR="${CI:-OFF}" -DVELK_BUILD_TESTS=ON && cmake --build "$(folder "$1")"; }
folder() { if [ "$1" = release ]; then echo build; else echo "build-$1"; fi; }
unit() {
  TSAN_OPTIONS=suppressions=$PWD/tests/service/tsan.txt "$(folder "$1")/tests/unit_tests"
}
service() {
  local more=()
  [ "$1" != release ] || [ ! -x build/collectors/syslog-ng ] || more=(--collectors build/collectors)
  python3 tests/service/run.py --binary "$(folder "$1")/syslog" "${more[@]}"
}
collectors() {
  tools/collectors.sh build/collectors ||
    echo "left out: all tests with rsyslog and syslog-ng: cannot download them"
}
export -f build folder unit service collectors

step "collectors" collectors
step "format" bash -c "tools/sources.sh .h .cpp .c | xargs clang-format --dry-run --Werror"
step "layers" python3 tests/layers.py
for preset in release asan tsan; do
  step "build $preset" build $preset
  step "unit $preset" unit $preset
  step "service $preset" service $preset
done
step "release binaries" tests/binary.sh build/syslog build/syslogctl
step_with "zsh fish" "completion" python3 tests/completion.py build/syslogctl
step_with "pkg-config clang" "install" tests/install/run.sh build
step "reproducible" tests/install/reproducible.sh
step "memory limit" python3 packaging/memory_limit.py build/syslog
step_with "busybox-static shellcheck make" "start scripts" packaging/test.sh
step_with "mandoc" "man pages" mandoc -T lint -W warning man/*
step_with "mandoc lowdown" "protocol page" tools/protocol.sh check
step_with "clang libclang-rt-dev" "fuzz regressions" fuzz/run.sh 0
step_with "shellcheck" "shell scripts" bash -c "tools/sources.sh .sh | xargs shellcheck -S warning"
step_with "cppcheck" "cppcheck" cppcheck --enable=warning,performance,portability --std=c++17 -q -I. \
  --error-exitcode=1 --suppress=missingIncludeSystem --suppressions-list=.cppcheck app common client runtime tools
# Checks the lock annotations of common/Mutex.h.
step_with "clang" "locks" clang++ -std=c++17 -I. -fsyntax-only -Wthread-safety -Werror \
  app/*.cpp common/*.cpp client/*.cpp
# The compile commands are GCC's, so clang-tidy must ignore options that clang does not have.
step "clang-tidy" bash -c "tools/sources.sh .cpp | grep -E '^(app|common|runtime|client|tools)/' |
  xargs -P 2 -n 4 clang-tidy -p build --quiet --extra-arg=-Wno-ignored-optimization-argument"

[ ${#failures[@]} -eq 0 ] || printf 'Failed: %s\n' "${failures[@]}"
echo "$passed passed, $failed failed, $skipped skipped"
[ "$failed" -eq 0 ]
