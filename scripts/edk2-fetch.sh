#!/usr/bin/env bash
# Fetches Debian's EDK2 source package into build/edk2/src and builds its
# BaseTools. Apt runs on a private configuration (its own source list, lists
# and cache under build/edk2/apt), so the system's package lists stay as
# they are. Unpacking goes through dpkg-source, which applies Debian's
# patches (they drop brotli from BaseTools, which does not build otherwise).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
top=$root/build/edk2
apt_dir=$top/apt
src=$top/src

if [ ! -f "$src/edksetup.sh" ]; then
  mkdir -p "$apt_dir/lists/partial" "$apt_dir/cache/archives/partial" "$top/download"
  echo "deb-src http://deb.debian.org/debian bookworm main" > "$apt_dir/sources.list"
  apt_opts=(-o APT::Sandbox::User=root -o Dir::Etc::sourcelist="$apt_dir/sources.list" -o Dir::Etc::sourceparts=/dev/null
    -o Dir::State::Lists="$apt_dir/lists" -o Dir::Cache="$apt_dir/cache" -o Debug::NoLocking=1)
  apt-get "${apt_opts[@]}" -qq update
  rm -rf "$top/download"/* "$src"
  (cd "$top/download" && apt-get "${apt_opts[@]}" -qq source edk2 > /dev/null)
  unpacked=$(find "$top/download" -mindepth 1 -maxdepth 1 -type d -name 'edk2-*' | head -1)
  mv "$unpacked" "$src"
fi

if [ ! -x "$src/BaseTools/Source/C/bin/GenFw" ]; then
  make -C "$src/BaseTools" -j "$(nproc)" PYTHON_COMMAND=/usr/bin/python3 > "$top/basetools.log" 2>&1 ||
    { tail -30 "$top/basetools.log"; exit 1; }
fi
