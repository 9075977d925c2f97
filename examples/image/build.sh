#!/bin/sh
# Builds a small file system for a device: BusyBox, the static service and tool, kernel modules and scripts.
#
#   examples/image/build.sh [FOLDER]   (from the top of the tree)
#
# Writes FOLDER/image.cpio.gz, an initramfs, and FOLDER/vmlinuz, Debian's kernel for virtual machines. FOLDER is
# build/image by default. Unpacks BusyBox and the kernel from Debian's packages without installing them.
set -eu
cd "$(dirname "$0")/../.."
folder=${1:-build/image}
root=$folder/root
mkdir -p "$folder"
folder=$(cd "$folder" && pwd)

tools/install.sh g++ cmake ninja-build musl-tools
cmake --preset musl >/dev/null
cmake --build build-musl --target syslog syslogctl -- --quiet

if [ ! -e "$folder/packages/bin/busybox" ]; then
  [ "$(apt-cache policy linux-image-cloud-amd64)" ] || apt-get update -qq
  kernel=$(apt-cache depends linux-image-cloud-amd64 | sed -n 's/.*Depends: //p')
  (cd "$folder" && apt-get download -qq -o APT::Sandbox::User=root busybox-static "$kernel" >/dev/null)
  for package in "$folder"/*.deb; do
    dpkg -x "$package" "$folder/packages"
    rm "$package"
  done
fi
busybox=$folder/packages/bin/busybox

rm -rf "$root"
mkdir -p "$root/bin" "$root/usr/bin" "$root/dev" "$root/proc" "$root/sys" "$root/tmp" "$root/run" "$root/lib/modules"
cp -r examples/image/root/* "$root"
cp "$busybox" "$root/bin/busybox"
for name in $("$busybox" --list-full); do
  mkdir -p "$root/$(dirname "$name")"
  [ -e "$root/$name" ] || ln -s /bin/busybox "$root/$name"
done
ln -s sbin/init "$root/init"
cp build-musl/syslog build-musl/syslogctl examples/network-up.sh "$root/usr/bin"
for module in failover net_failover virtio_ring virtio virtio_pci_modern_dev virtio_pci_legacy_dev virtio_pci \
  virtio_net; do
  find "$folder/packages/lib/modules" -name "$module.ko" -exec cp {} "$root/lib/modules" \;
done

cp "$folder"/packages/boot/vmlinuz-* "$folder/vmlinuz"
(cd "$root" && find . | "$busybox" cpio -o -H newc 2>/dev/null | gzip -9) >"$folder/image.cpio.gz"
ls -l "$folder/image.cpio.gz" "$folder/vmlinuz"
