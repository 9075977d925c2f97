#!/bin/bash
# Builds for every processor in cmake/toolchains with Debian's cross compilers and runs the tests under qemu-user:
# tools/cross.sh [ARCHITECTURE...]. Prints a table at the end. Writes to build-cross/ and, while it runs, to /var/tmp,
# because the service tests hide /tmp.
set -u
cd "$(dirname "$0")/.." || exit 1

declare -A triplets=([armhf]=arm-linux-gnueabihf [aarch64]=aarch64-linux-gnu [i386]=i686-linux-gnu
  [mips]=mips-linux-gnu [s390x]=s390x-linux-gnu [riscv64]=riscv64-linux-gnu)
architectures=("$@")
[ $# -gt 0 ] || architectures=(armhf aarch64 i386 mips s390x riscv64)

packages=(cmake ninja-build python3 googletest qemu-user-static)
for architecture in "${architectures[@]}"; do
  [ -n "${triplets[$architecture]:-}" ] || { echo "cross.sh: unknown architecture $architecture" >&2; exit 2; }
  packages+=("g++-${triplets[$architecture]}")
done
tools/install.sh "${packages[@]}" || exit 1

stage=$(mktemp -d /var/tmp/velk-cross.XXXXXX)
trap 'rm -rf "$stage"' EXIT
logs=build-cross/logs
mkdir -p $logs
unit_out=() service_out=()

# Tests that fail under the emulator, one per line with the reason.
emulator_limits() {
  cat <<'END'
unit UdpSocket3.JoinsAndLeavesAGroup qemu-user has no IP_MULTICAST_IF
unit UdpSocket3.SetsTheOptionsOfIp qemu-user has no IP_MULTICAST_IF
unit InetAddress2.DoesNotAbortWithoutMemory the memory limit applies to the emulator too
service test_each_function the preloaded library that fails system calls is built for this machine only
service test_serves_where_recvmmsg_is_refused the same library
service test_restarts_a_child_that_runs_out_of_memory the emulator needs more address space than the limit allows
service test_its_longest_backlog_fits_the_start_scripts_limit the same limit
service test_reports_missing_descriptors_and_a_full_device the shell that starts the emulator needs more descriptors
service test_after_many_calls_that_take_long under the emulator the calls take longer than the tool waits
END
}

# If this machine's kernel runs i386 programs, fewer tests fail than under the emulator.
native_limits() {
  cat <<'END'
service test_each_function the preloaded library that fails system calls is for 64-bit programs
service test_serves_where_recvmmsg_is_refused the same library
service test_reports_missing_descriptors_and_a_full_device the shell that starts the program needs more descriptors
END
}

leave_out() {  # limits on standard input
  local kind name reason
  unit_out=() service_out=()
  while read -r kind name reason; do
    echo "left out: $1 $name: $reason"
    if [ "$kind" = unit ]; then unit_out+=("$name"); else service_out+=("$name"); fi
  done
}

# Sets runner (the command prefix that runs the architecture's programs) and the tests to leave out.
choose_runner() {
  local sysroot=/usr/${triplets[$1]}
  local loader=$sysroot/lib/ld-linux.so.2
  # Sets the library path too: otherwise the loader may find other 32-bit libraries in this machine's cache.
  runner=("qemu-$1-static" -L "$sysroot" -E "LD_LIBRARY_PATH=$sysroot/lib")
  case $1 in
    armhf) runner[0]=qemu-arm-static ;;
    i386) if "$loader" --library-path "$sysroot/lib" build-cross/i386/syslogctl --version >/dev/null 2>&1; then
        runner=("$loader" --library-path "$sysroot/lib")
      fi ;;
  esac
  case ${runner[0]} in
    qemu-mips-static | qemu-s390x-static) leave_out "$1" < <(emulator_limits
      echo "unit LogCall.* this machine's locale files have the other byte order") ;;
    qemu-*) leave_out "$1" < <(emulator_limits) ;;
    *) leave_out "$1" < <(native_limits) ;;
  esac
}

build() {
  cmake -S . -B "build-cross/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELK_WERROR="${CI:-OFF}" \
    -DVELK_BUILD_TESTS=ON --toolchain "cmake/toolchains/$1.cmake" && cmake --build "build-cross/$1"
}

unit() {
  local filter
  filter=$(IFS=:; echo "${unit_out[*]}")
  timeout 600 "${runner[@]}" "build-cross/$1/tests/unit_tests" --gtest_filter="-$filter"
}

# The tests start each program by its path, so a script at that path starts the emulator.
wrap() {
  local program wrapper
  rm -rf "${stage:?}"/*
  for program in syslog syslogctl tests/velk_lines examples/log_c examples/log_cpp examples/event_loop; do
    wrapper=$stage/wrapped/$program
    mkdir -p "$(dirname "$wrapper")" "$(dirname "$stage/real/$program")"
    cp "build-cross/$1/$program" "$stage/real/$program" || return 1
    { echo "#!/bin/sh"; echo "exec ${runner[*]} $stage/real/$program \"\$@\""; } >"$wrapper"
    chmod +x "$wrapper"
  done
}

service() { wrap "$1" && tools/service.sh "$stage/wrapped" "${service_out[@]}"; }

# Runs one step for an architecture and sets outcome to the number of tests, "ok" or "FAILED".
step() {
  local log=$logs/$2-$1.log
  if "$1" "$2" >"$log" 2>&1; then
    outcome=ok
    case $1 in
      unit) outcome=$(grep -oP '(?<=PASSED  \] )\d+' "$log") ;;
      service) outcome=$(awk '/^Ran /{n += $2} /^left out:/{n--} END{print n}' "$log")
        sed -n "s/^left out: /&$2 /p" "$log" ;;
    esac
  else
    outcome=FAILED
    failed=$((failed + 1))
    echo "$1 $2 failed; errors, warnings and the end of $log:"
    grep -E '^(ERROR|FAIL|\[  FAILED|Assertion)|Failure|warning:|error:' "$log" | tail -n 40
    tail -n 3 "$log"
  fi
}

failed=0
table=$logs/table
printf '%-12s %14s %8s %9s\n' architecture 'syslog, bytes' unit service >$table
for architecture in "${architectures[@]}"; do
  size=- units=- services=-
  step build "$architecture"
  if [ "$outcome" = ok ]; then
    size=$(stat -c %s "build-cross/$architecture/syslog")
    choose_runner "$architecture"
    step unit "$architecture"
    units=$outcome
    step service "$architecture"
    services=$outcome
  fi
  printf '%-12s %14s %8s %9s\n' "$architecture" "$size" "$units" "$services" >>$table
done
cat $table
[ "$failed" -eq 0 ]
