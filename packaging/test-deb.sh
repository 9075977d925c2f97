#!/bin/bash
# Builds the Debian package and a newer version, checks the first with lintian, and tests both in a minimal Debian
# that boots in a container. Run packaging/test-deb.sh. Needs root. Writes to build-deb/ and, while it runs, to /var/tmp.
set -eu
cd "$(dirname "$0")/.."

if [ "$(id -u)" -ne 0 ]; then
  echo "left out: testing Debian's package: needs root"
  exit 0
fi
tools/install.sh lintian debootstrap systemd-container

rm -f build-deb/*.deb
for release in 2 1; do packaging/deb.sh -D "CPACK_DEBIAN_PACKAGE_RELEASE=$release" >/dev/null; done
package=$(echo build-deb/velk_*-1_*.deb)
upgrade=$(echo build-deb/velk_*-2_*.deb)
lintian --fail-on error "$package"

cache=$PWD/build-deb/root.tar
work=$(mktemp -d /var/tmp/velk-deb.XXXXXX)
trap 'rm -rf "$work"' EXIT
root=$work/root
mkdir "$root"
# shellcheck disable=SC1091  # this machine's file
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
if [ -e "$cache" ]; then
  tar -x -C "$root" -f "$cache"
elif debootstrap --variant=minbase --include=systemd-sysv,dbus,adduser,procps,python3-minimal "$suite" "$root" \
  >"$work/log"; then
  rm -f "$root"/var/cache/apt/archives/*.deb
  tar -c -C "$root" -f "$cache" .
else
  tail -n 3 "$work/log"
  echo "left out: testing Debian's package in a container: debootstrap fails here"
  exit 0
fi

echo "installs in a root that is not booted, as image builders do"
cp "$package" "$root/package.deb"
cp "$upgrade" "$root/upgrade.deb"
chroot "$root" dpkg -i /package.deb >/dev/null

install -m 755 packaging/debian/inside.sh "$root/inside.sh"
cat >"$root/etc/systemd/system/velk-test.service" <<'END'
[Unit]
After=multi-user.target
[Service]
Type=oneshot
ExecStart=/inside.sh
ExecStopPost=systemctl poweroff
StandardOutput=file:/result
StandardError=file:/result
[Install]
WantedBy=multi-user.target
END
chroot "$root" systemctl --quiet enable velk-test.service
timeout 300 systemd-nspawn --quiet --directory="$root" --private-network --register=no --keep-unit --boot \
  </dev/null >"$work/boot" 2>&1 || true
[ -e "$root/result" ] || { cat "$work/boot"; echo "test-deb.sh: the container did not boot"; exit 1; }
cat "$root/result"
[ "$(tail -n 1 "$root/result")" = "all well" ]
