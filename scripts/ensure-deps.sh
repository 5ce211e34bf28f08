#!/usr/bin/env bash
# Installs (as root) or names (otherwise) the Debian packages the build needs;
# 'firmware' adds those of the firmware build and the QEMU boots, 'bench' those
# of the bench (callgrind and gnuplot).
set -euo pipefail
packages=(make cmake g++ clang python3 libgtest-dev libgmock-dev acpica-tools uefitool-cli libdw-dev nlohmann-json3-dev)
# The firmware build (EDK2's source package and BaseTools) and the QEMU boots.
if [ "${1:-}" = firmware ]; then
  packages+=(dpkg-dev nasm uuid-dev qemu-system-x86 busybox-static)
fi
if [ "${1:-}" = bench ]; then
  packages+=(valgrind gnuplot-nox)
fi
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -eq 0 ]; then
  echo "Installing missing packages: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq "${missing[@]}"
else
  echo "Missing packages. Install them with:"
  echo "  sudo apt-get install -y ${missing[*]}"
  exit 1
fi
