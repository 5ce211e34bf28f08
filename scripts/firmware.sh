#!/usr/bin/env bash
# Builds the firmware: the package on its own (VornApeiLoggingPkg.dsc), then
# the QEMU platform (OVMF X64 with SMM, the APEI logging module and the
# platform's drivers) twice: as specified, and with every switch on (the
# interop profile; only the module rebuilds). The flash images land in
# build/firmware/{specified,interop}. The EDK2 tree, its workspace and every
# output stay under build/edk2; a second run rebuilds only what changed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
top=$root/build/edk2
src=$top/src
ws=$top/ws

"$root/scripts/edk2-fetch.sh"

mkdir -p "$ws"
ln -sfn "$root" "$ws/VornApeiLoggingPkg"
/usr/bin/python3 "$root/scripts/edk2-workspace.py" "$src" "$ws"

export WORKSPACE=$ws PACKAGES_PATH=$ws:$src EDK_TOOLS_PATH=$src/BaseTools CONF_PATH=$ws/Conf
export PYTHON_COMMAND=/usr/bin/python3
set --
set +u
# shellcheck disable=SC1091
. "$src/edksetup.sh" > /dev/null
set -u

# Runs an EDK2 build with its output in LOG; on failure shows the compiler's
# and the build tool's errors.
edk2_build() {
  local log=$1
  shift
  if ! build -a X64 -t GCC5 -b DEBUG -n "$(nproc)" "$@" > "$log" 2>&1; then
    grep -E 'error|Error|undefined reference' "$log" | head -40
    echo "EDK2 build failed; the whole output is in $log"
    exit 1
  fi
}

edk2_build "$top/package.log" -p VornApeiLoggingPkg/VornApeiLoggingPkg.dsc

fv=$ws/Build/VornOvmfX64/DEBUG_GCC5/FV
for mode in specified interop; do
  fix_all=FALSE
  [ $mode = interop ] && fix_all=TRUE
  edk2_build "$top/platform-$mode.log" -p VornQemuPlatform/VornOvmfX64.dsc \
    -D SMM_REQUIRE=TRUE -D BUILD_SHELL=FALSE -D VORN_FIX_ALL=$fix_all
  mkdir -p "$root/build/firmware/$mode"
  cp "$fv/OVMF_CODE.fd" "$fv/OVMF_VARS.fd" "$root/build/firmware/$mode/"
  echo "$mode: build/firmware/$mode/OVMF_{CODE,VARS}.fd;" \
    "VornApeiLoggingSmm.efi $(stat -c %s "$fv/../X64/VornApeiLoggingSmm.efi") bytes (DEBUG)"
done
