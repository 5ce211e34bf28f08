#!/usr/bin/env bash
# Prepares the QEMU test guest under build/qemu: Debian's kernel, taken from
# the linux-image .deb (downloaded and unpacked, never installed), and a
# busybox initramfs around QemuPlatform/Guest/init.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/build/qemu

mkdir -p "$out"
if [ ! -f "$out/vmlinuz" ]; then
  package=$(apt-cache depends linux-image-amd64 | sed -n 's/^ *Depends: \(linux-image-[0-9][^ ]*\)$/\1/p' | head -1)
  rm -rf "$out/kernel"
  mkdir -p "$out/kernel"
  (cd "$out/kernel" && apt-get -o APT::Sandbox::User=root download -qq "$package")
  dpkg-deb -x "$out"/kernel/*.deb "$out/kernel/root"
  cp "$out"/kernel/root/boot/vmlinuz-* "$out/vmlinuz.new"
  echo "$package" > "$out/kernel-package"
  rm -rf "$out/kernel"
  mv "$out/vmlinuz.new" "$out/vmlinuz"
fi

tree=$out/initramfs
rm -rf "$tree"
mkdir -p "$tree/bin" "$tree/proc" "$tree/sys" "$tree/dev"
cp /bin/busybox "$tree/bin/busybox"
cp "$root/QemuPlatform/Guest/init" "$tree/init"
(cd "$tree" && find . | LC_ALL=C sort | busybox cpio -o -H newc 2> /dev/null) > "$out/initramfs.cpio"
