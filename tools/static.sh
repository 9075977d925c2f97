#!/bin/bash
# Builds three static forms: static (with glibc), musl, and small (with a musl built for size). Tests the first and the
# last, and prints the sizes of all on disk and in memory. Builds in build*/.
# shellcheck disable=SC2317  # step() runs the functions
set -u
cd "$(dirname "$0")/.." || exit 1
tools/install.sh g++ cmake ninja-build python3 libgtest-dev musl-tools iproute2 || exit 1

# Each line names a form, a test that cannot pass on it, and the reason.
limits() {
  local starved=test_restarts_a_child_that_runs_out_of_memory
  cat <<END
static test_each_function a static program ignores LD_PRELOAD
static test_serves_where_recvmmsg_is_refused a static program ignores LD_PRELOAD
static $starved a static service never reaches the test's limit of address space
small test_each_function a static program ignores LD_PRELOAD
small test_serves_where_recvmmsg_is_refused a static program ignores LD_PRELOAD
small $starved a static service never reaches the test's limit of address space
small test_switches_forwarding_whatever_it_was_before musl's resolver takes longer than the tool waits for the service
END
}

# RSS and PSS of supervisor and child together in KiB, after a peer has joined.
memory() {
  # shellcheck disable=SC2016  # for the inner shell
  unshare --net sh -eu -c '
    ip link set lo up
    "$1" >/dev/null 2>&1 &
    until python3 examples/peer.py hello >/dev/null 2>&1; do kill -0 $!; done
    cat /proc/$!/smaps_rollup /proc/"$(cat /proc/$!/task/$!/children | tr -d " ")"/smaps_rollup
    kill $!
  ' memory "$1" | awk '/^Rss/{rss += $2} /^Pss:/{pss += $2} END{print rss, pss}'
}

build() {  # NAME PRESET [OPTION...]
  [ "$1" != small ] || tools/musl.sh "$PWD/build-small/musl" || return 1
  cmake --preset "$2" -B "build-$1" -DVELK_WERROR="${CI:-OFF}" "${@:3}" && cmake --build "build-$1"
}

# Tests one form of syslog and syslogctl, with the test helpers of the ordinary build.
service() {
  rm -rf "build-$1/stage"
  mkdir -p "build-$1/stage/tests" "build-$1/stage/examples"
  cp "build-$1/syslog" "build-$1/syslogctl" "build-$1/stage/"
  cp build/tests/velk_lines "build-$1/stage/tests/"
  cp build/examples/log_c build/examples/log_cpp build/examples/event_loop "build-$1/stage/examples/"
  local left_out
  mapfile -t left_out < <(limits | sed -n "s/^$1 \([^ ]*\) .*/\1/p")
  tools/service.sh "build-$1/stage" "${left_out[@]}"
}

needs_no_library() { ! readelf -d "$1" | grep NEEDED; }

failed=0
step() {
  local log=build/logs/static-$2-$1.log
  "$@" >"$log" 2>&1 && return
  failed=1
  echo "$1 $2 failed; the end of $log:"
  tail -n 40 "$log"
}

row() {
  local dir=$2 rss pss
  read -r rss pss < <(memory "$dir/syslog")
  printf '%-14s %10s %10s %9s %9s\n' "$1" "$(stat -c %s "$dir/syslog")" "$(stat -c %s "$dir/syslogctl")" "$rss" "$pss"
}

mkdir -p build/logs
cmake --preset release -DVELK_BUILD_TESTS=ON >/dev/null && cmake --build build >/dev/null || exit 1
step build static release -DVELK_STATIC=ON -DVELK_BUILD_TESTS=OFF
step build musl musl
step build small musl "-DVELK_MUSL=$PWD/build-small/musl"
limits | sed 's/ /: /2; s/^/left out: /'
for form in static small; do step service $form; done
for form in static musl small; do
  for program in syslog syslogctl; do
    needs_no_library build-$form/$program || failed=1
  done
done
printf '%-14s %10s %10s %9s %9s\n' form syslog syslogctl "RSS, KiB" "PSS, KiB"
row shared build
row glibc build-static
row musl build-musl
row "musl, small" build-small
[ "$(stat -c %s build-small/syslog)" -le $((100 * 1024)) ] ||
  { echo "build-small/syslog is larger than 100 KiB"; failed=1; }
exit $failed
