#!/bin/sh
# Builds Debian's musl source for size (the package is built for speed) and installs it in FOLDER, an absolute path:
# tools/musl.sh FOLDER. Then: cmake --preset musl -B build-small -DVELK_MUSL=FOLDER.
set -eu
folder=$1
[ ! -e "$folder/lib/libc.a" ] || exit 0
"$(dirname "$0")/install.sh" gcc make dpkg-dev ca-certificates

# Private package lists: the machine's apt configuration may have no deb-src.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir -p lists/partial
chmod -R a+rwX .
# shellcheck disable=SC1091  # a file of this machine
. /etc/os-release
echo "deb-src http://deb.debian.org/debian $VERSION_CODENAME main" >sources
apt() { apt-get -qq -o Dir::Etc::sourcelist="$work/sources" -o Dir::Etc::sourceparts=/dev/null \
  -o Dir::State::lists="$work/lists" -o APT::Sandbox::User=root "$@"; }
apt update
apt source musl >/dev/null  # with Debian's patches
cd musl-*/
./configure --prefix="$folder" --disable-shared --enable-wrapper=gcc \
  CFLAGS="-Os -ffunction-sections -fdata-sections" >/dev/null
make -s -j2 install >/dev/null
