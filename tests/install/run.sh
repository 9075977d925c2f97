#!/bin/sh
# Installs a build into a temporary folder, builds other projects with it, and uninstalls it:
# tests/install/run.sh BUILD
set -eu
build=$(realpath "$1")
here=$(dirname "$(realpath "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

DESTDIR=$work/root cmake --install "$build" --prefix /usr >"$work/log"
root=$work/root/usr
library=$(dirname "$(find "$root" -name libvelk.so)")
exported=$(nm -D --defined-only "$library/libvelk.so" | sed -n 's/.* T //p' | sed 's/@.*//' | tr '\n' ' ')
static=$(nm -g --defined-only "$library/libvelk.a" | sed -n 's/.* [A-Z] //p' | sort | tr '\n' ' ')
expected="velk_close velk_fd velk_flush velk_log velk_open velk_process velk_vlog "
[ "$exported" = "$expected" ] || { echo "The shared library exports: $exported"; exit 1; }
[ "$static" = "$expected" ] || { echo "The static library exports: $static"; exit 1; }
# shellcheck disable=SC2015
readelf -d "$library/libvelk.so" | grep -q 'SONAME.*libvelk\.so\.1\]' && ! readelf -d "$library/libvelk.so" |
  grep 'NEEDED.*++' || { echo "The shared library has a wrong name or needs a C++ run-time library"; exit 1; }

echo "With pkg-config:"
export PKG_CONFIG_LIBDIR="$library/pkgconfig" PKG_CONFIG_SYSROOT_DIR="$work/root" LD_LIBRARY_PATH="$library"
strict="-Wall -Wextra -Wpedantic -Werror"
# shellcheck disable=SC2046,SC2086  # lists of words
{
  cc -std=c99 $strict -o "$work/c" "$here/program.c" $(pkg-config --cflags --libs velk)
  c++ -std=c++11 $strict -o "$work/cpp" -x c++ "$here/program.c" $(pkg-config --cflags --libs velk)
  cc -std=c99 $strict -o "$work/c_static" "$here/program.c" $(pkg-config --cflags velk) "$library/libvelk.a" \
    $(pkg-config --static --libs-only-other velk)
  cc -std=c99 $strict -o "$work/no_memory" "$here/no_memory.c" $(pkg-config --cflags --libs velk)
}
for program in c cpp c_static no_memory; do "$work/$program"; echo "  $program: ok"; done

sed -n '/^```cpp$/,/^```$/{//!p}' "$here/../../README.md" | sed "s,/tmp/mylog,$work/mylog," >"$work/own_log.cpp"
use() {  # NAME CMAKE-OPTION...
  folder=$work/$1
  shift
  { cmake -S "$here" -B "$folder" -G Ninja -DVELK_OWN_LOG="$work/own_log.cpp" "$@" && cmake --build "$folder"; } \
    >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
  for program in c_velk c_velk_static cpp_velk cpp_velk_static; do "$folder/$program"; done
  [ -z "$(ldd "$folder/own_log" | grep velk)" ] && "$folder/own_log" | grep -q "mydaemon.Info: Up and running"
}
for compilers in "gcc g++" "clang clang++"; do
  command -v "${compilers#* }" >/dev/null || { echo "left out: ${compilers#* }: not installed"; continue; }
  choice="-DCMAKE_C_COMPILER=${compilers% *} -DCMAKE_CXX_COMPILER=${compilers#* }"
  # shellcheck disable=SC2086  # a list of words
  {
    use "find_package-${compilers#* }" $choice -DCMAKE_PREFIX_PATH="$root"
    use "add_subdirectory-${compilers#* }" $choice -DVELK_TREE="$here/../.."
  }
  echo "With find_package and add_subdirectory, ${compilers#* }: ok"
done

DESTDIR=$work/root cmake --build "$build" --target uninstall >>"$work/log"
left=$(find "$work/root" ! -type d -o -name '*velk*')
[ -z "$left" ] || { echo "Uninstalling left $left"; exit 1; }
