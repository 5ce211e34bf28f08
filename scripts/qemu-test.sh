#!/usr/bin/env bash
# Boots the QEMU platform firmware (make firmware) on qemu-system-x86_64 -machine
# q35,smm=on (TCG: this KVM has no SMM) with Debian's kernel and a busybox
# guest, and checks what Linux itself reports.
#
#   qemu-test.sh          both firmware modes (specified, interop): errors
#                         decoded, then a panic stored through the ERST and
#                         /sys/fs/pstore listed after a restart on the same
#                         variable-store flash; where the panic log is there
#                         (interop), pstore removes it and a third boot
#                         checks that it stays removed
#   qemu-test.sh --smoke  one boot of the specified firmware: the module
#                         starts, the ERST is initialised, one injected
#                         error is decoded
#
# Each boot leaves NAME-linux.log (the console), NAME-firmware.log (the APEI
# logging module's serial log) and NAME-ovmf.log (OVMF's debug port) in
# build/qemu/MODE. Each check prints PASS or FAIL with the line it found.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$root/build/qemu
boot_timeout=${VORN_QEMU_TIMEOUT:-1200}
failures=0

"$root/scripts/qemu-guest.sh"

# boot MODE NAME STEPS: one boot; the variable store carries over from the
# previous boot of MODE.
boot() {
  local mode=$1 name=$2 steps=$3 dir=$out/$1 firmware=$root/build/firmware/$1
  [ -f "$firmware/OVMF_CODE.fd" ] || { echo "No $mode firmware: run make firmware first."; exit 1; }
  echo "== $mode: boot '$name' (vorn.steps=$steps)"
  local start=$SECONDS
  timeout "$boot_timeout" qemu-system-x86_64 -machine q35,smm=on,accel=tcg -m 512 -smp 1 \
    -nodefaults -display none -no-reboot \
    -global driver=cfi.pflash01,property=secure,value=on -global ICH9-LPC.disable_s3=1 \
    -drive if=pflash,format=raw,unit=0,readonly=on,file="$firmware/OVMF_CODE.fd" \
    -drive if=pflash,format=raw,unit=1,file="$dir/VARS.fd" \
    -kernel "$out/vmlinuz" -initrd "$out/initramfs.cpio" \
    -append "console=ttyS0 panic=1 vorn.steps=$steps" \
    -serial file:"$dir/$name-linux.log" -serial file:"$dir/$name-firmware.log" \
    -debugcon file:"$dir/$name-ovmf.log" -global isa-debugcon.iobase=0x402 ||
    echo "   (QEMU ended with status $?)"
  echo "   $((SECONDS - start)) s"
}

# fresh MODE: a new variable store, as the firmware build made it.
fresh() {
  mkdir -p "$out/$1"
  rm -f "$out/$1"/*
  cp "$root/build/firmware/$1/OVMF_VARS.fd" "$out/$1/VARS.fd"
}

# check WHAT FILE PATTERN: PASS with the first line matching PATTERN
# (an extended regular expression), else FAIL.
check() {
  local what=$1 file=$2 pattern=$3 line
  if line=$(grep -a -m1 -E -- "$pattern" "$file" | tr -d '\r'); then
    echo "PASS  $what: ${line#\[*\] }"
  else
    echo "FAIL  $what: no line matching '$pattern' in ${file#$root/}"
    failures=$((failures + 1))
  fi
}

# check_absent WHAT FILE PATTERN: PASS when no line matches.
check_absent() {
  local what=$1 file=$2 pattern=$3 line
  if line=$(grep -a -m1 -E -- "$pattern" "$file" | tr -d '\r'); then
    echo "FAIL  $what: ${line#\[*\] }"
    failures=$((failures + 1))
  else
    echo "PASS  $what"
  fi
}

# The start-up and error checks of one boot.
check_errors() {
  local linux=$1 firmware=$2 memory=$3 pcie=$4
  check "module started" "$firmware" 'VornApeiLoggingSmmConstructor: .*Installing protocol gEfiVornApeiLoggingSmmProtocolGuid'
  check "HEST parsed" "$linux" 'HEST: Table parsing has been initialized'
  check "GHES sources registered" "$linux" 'vorn: GHES devices: GHES\.65534 GHES\.7 GHES\.8'
  check "WHEA _OSC" "$linux" 'GHES: APEI firmware first mode is enabled'
  check "ERST initialised" "$linux" 'ERST: Error Record Serialization Table \(ERST\) support is initialized\.'
  check "pstore backend" "$linux" 'pstore: Registered erst as persistent store backend'
  if [ "$memory" = yes ]; then
    check "memory error source" "$linux" '\[Hardware Error\]: Hardware error from APEI Generic Hardware Error Source: 8'
    check "memory error severity" "$linux" '\[Hardware Error\]: event severity: corrected'
    check "memory error section" "$linux" '\[Hardware Error\]:.*section_type: memory error'
    check "memory error address" "$linux" '\[Hardware Error\]:.*physical_address: 0x0000000123456780'
  fi
  if [ "$pcie" = yes ]; then
    check "PCIe error source (NMI)" "$linux" '\[Hardware Error\]: Hardware error from APEI Generic Hardware Error Source: 7'
    check "PCIe error severity" "$linux" '\[Hardware Error\]: event severity: recoverable'
    check "PCIe error section" "$linux" '\[Hardware Error\]:.*section_type: PCIe error'
  fi
}

if [ "${1:-}" = --smoke ]; then
  fresh specified
  boot specified smoke apei,memory
  check_errors "$out/specified/smoke-linux.log" "$out/specified/smoke-firmware.log" yes no
else
  for mode in specified interop; do
    fresh $mode
    boot $mode errors apei,memory,pcie,panic
    check_errors "$out/$mode/errors-linux.log" "$out/$mode/errors-firmware.log" yes yes
    check "panic" "$out/$mode/errors-linux.log" 'Kernel panic - not syncing'
    check "panic record written through the ERST" "$out/$mode/errors-firmware.log" \
      'VornApeiLoggingErstElogSwSmiCallback: .*(SET_RECORD|Set record|write)'
    boot $mode pstore apei,pstore,clear
    check "pstore listed after the restart" "$out/$mode/pstore-linux.log" 'vorn: pstore files:'
    if [ $mode = specified ]; then
      check_absent "no panic log in pstore (a read copies no bytes)" "$out/$mode/pstore-linux.log" 'vorn: pstore .*dmesg'
    else
      check "panic log in pstore" "$out/$mode/pstore-linux.log" 'vorn: pstore files: .*dmesg-erst'
      check "panic log text" "$out/$mode/pstore-linux.log" 'Kernel panic - not syncing: sysrq triggered crash'
      check "records cleared through the ERST" "$out/$mode/pstore-firmware.log" 'ERST_PERSISTENT_CLEAR_RECORD'
      boot $mode cleared apei,pstore
      check "pstore listed after the next restart" "$out/$mode/cleared-linux.log" 'vorn: pstore files:'
      check_absent "cleared records stay cleared" "$out/$mode/cleared-linux.log" 'vorn: pstore files: .*dmesg'
    fi
  done
fi

if [ $failures -ne 0 ]; then
  echo "$failures check(s) failed; logs in build/qemu"
  exit 1
fi
echo "All checks passed; logs in build/qemu"
