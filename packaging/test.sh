#!/bin/bash
# Tests OpenWrt's and Buildroot's files with stubs for what they include; as root also SysV's script and BusyBox's
# inittab, in a file system with only BusyBox. test-deb.sh tests Debian's package.
set -eu
cd "$(dirname "$0")/.."
tools/install.sh g++ cmake ninja-build busybox-static shellcheck make

shellcheck -S warning packaging/debian/p* packaging/sysv/velk
shellcheck -s dash packaging/openwrt/files/velk.init
echo "shellcheck is silent"

version=$(sed -n 's/^project(velk VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
says() { grep -qF "$2" "$1" || { echo "$1 does not say: $2"; exit 1; }; }
says packaging/openwrt/Makefile "PKG_VERSION:=$version"
says packaging/buildroot/package/velk/velk.mk "VELK_VERSION = $version"
says packaging/debian/changelog "velk ($version-"
says docs/image.md "velk_$version-1_"
ls "packaging/yocto/recipes-support/velk/velk_$version.bb" >/dev/null
echo "all files name version $version"

cmake --preset release -B build-static -DVELK_STATIC=ON -DVELK_BUILD_TESTS=OFF >/dev/null
cmake --build build-static >/dev/null 2>&1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
DESTDIR=$work/installed cmake --install build-static --prefix /usr >/dev/null

# OpenWrt: checks the script's calls to procd and the contents of the package.
{
  for name in open_instance set_param close_instance; do echo "procd_$name() { echo $name \"\$@\"; }"; done
  echo ". packaging/openwrt/files/velk.init; start_service"
} >"$work/procd"
sh "$work/procd" >"$work/asked"
grep -qx 'set_param command /usr/sbin/syslog' "$work/asked"
grep -qx 'set_param respawn 3600 1 0' "$work/asked"
mkdir "$work/openwrt"
cat >"$work/openwrt/rules.mk" <<'END'
INSTALL_DIR = install -d
INSTALL_BIN = install -m 755
BuildPackage = package: ; $$(call Package/$(1)/install,$(DEST))
END
touch "$work/openwrt/package.mk" "$work/openwrt/cmake.mk"
make -s -C packaging/openwrt TOPDIR="$work/openwrt" INCLUDE_DIR="$work/openwrt" \
  PKG_INSTALL_DIR="$work/installed" DEST="$work/package" package
for file in usr/sbin/syslog usr/bin/syslogctl etc/init.d/velk; do [ -x "$work/package/$file" ]; done
echo "OpenWrt's recipe packs the files, its script starts the service with procd"

# Buildroot: external.mk must find the recipe, and the recipe must install unit and start script.
cat >"$work/buildroot.mk" <<'END'
site = test -e $$(VELK_SITE)/CMakeLists.txt
cmake-package = image: ; $(site) && $$(VELK_INSTALL_INIT_SYSV) && $$(VELK_INSTALL_INIT_SYSTEMD)
INSTALL = install
include $(BR2_EXTERNAL_VELK_PATH)/external.mk
END
make -s -f "$work/buildroot.mk" BR2_EXTERNAL_VELK_PATH="$PWD/packaging/buildroot" TARGET_DIR="$work/image" \
  "@D=$PWD" image
[ -x "$work/image/etc/init.d/S01velk" ] && [ -L "$work/image/etc/systemd/system/multi-user.target.wants/velk.service" ]
echo "Buildroot's recipe puts unit and script into the image"

if [ "$(id -u)" -ne 0 ]; then
  echo "left out: the start scripts in a BusyBox root: needs root"
  exit 0
fi
if ! unshare --mount --net --pid --fork true; then
  echo "left out: the start scripts in a BusyBox root: unshare is refused here"
  exit 0
fi
root=$work/root
mkdir -p "$root"/{bin,sbin,dev,etc/init.d,proc,tmp,usr/bin,usr/sbin,var/run}
cp "$(command -v busybox)" "$root/bin/busybox"
chroot "$root" /bin/busybox --install -s
cp "$work/installed/usr/sbin/syslog" "$root/usr/sbin/"
cp "$work/installed/usr/bin/syslogctl" "$root/usr/bin/"
cp packaging/sysv/velk "$root/etc/init.d/"
cp packaging/busybox/inittab "$root/etc/inittab"
echo '::once:/bin/sh /check init >/result 2>&1' >>"$root/etc/inittab"
for device in 'null 1 3' 'console 5 1' 'kmsg 1 11'; do
  read -r name major minor <<<"$device"
  mknod -m 666 "$root/dev/$name" c "$major" "$minor"
done
cp packaging/busybox/check.sh "$root/check"

boot() {  # PROGRAM [ARGUMENT...]: run as the first process of a namespace
  timeout --foreground -s KILL 100 unshare --mount --net --pid --fork --kill-child chroot "$root" "$@" \
    </dev/null >/dev/null 2>&1 || true
  cat "$root/result"
  [ "$(tail -n 1 "$root/result")" = "all well" ]
  rm "$root/result"
}
echo "BusyBox's init, by inittab:"
boot /sbin/init
echo "the SysV script, with BusyBox's start-stop-daemon:"
boot /bin/sh -c 'exec sh /check sysv >/result 2>&1'
