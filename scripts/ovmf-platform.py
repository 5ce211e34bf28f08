#!/usr/bin/env python3
"""Writes the QEMU platform's DSC and FDF: OVMF's X64 ones (taken from the
EDK2 tree as they are) with the platform's own fragments spliced in at fixed
anchors. Everything the platform adds lives in QemuPlatform/*.inc; this only
places the includes, so that an EDK2 update shows up here as a missing
anchor rather than as a silently different firmware.

usage: ovmf-platform.py EDK2_SOURCE OUTPUT_DIR
"""
import os
import re
import sys

PLATFORM = "VornApeiLoggingPkg/QemuPlatform"
OUT_NAME = "VornOvmfX64"


def replace_once(text, anchor, replacement):
    if text.count(anchor) < 1:
        sys.exit("ovmf-platform.py: anchor not found in OVMF's files: %r" % anchor)
    return text.replace(anchor, replacement)


def derive_dsc(dsc, fdf_path):
    dsc = replace_once(dsc, "OUTPUT_DIRECTORY               = Build/OvmfX64",
                       "OUTPUT_DIRECTORY               = Build/%s" % OUT_NAME)
    dsc = replace_once(dsc, "FLASH_DEFINITION               = OvmfPkg/OvmfPkgX64.fdf",
                       "FLASH_DEFINITION               = %s" % fdf_path)
    dsc = replace_once(dsc, "  DEFINE SMM_REQUIRE             = FALSE\n",
                       "  DEFINE SMM_REQUIRE             = FALSE\n  DEFINE VORN_FIX_ALL            = FALSE\n")
    return dsc + "\n!include %s/QemuPlatform.dsc.inc\n" % PLATFORM


def derive_fdf(fdf):
    # The copy lives outside OvmfPkg: its relative includes name OvmfPkg.
    fdf = re.sub(r"^!include (\w[\w.]*)$", r"!include OvmfPkg/\1", fdf, flags=re.M)
    fdf = replace_once(fdf, "!include OvmfPkg/OvmfPkgDefines.fdf.inc\n",
                       "!include OvmfPkg/OvmfPkgDefines.fdf.inc\n!include %s/QemuFlashLayout.fdf.inc\n" % PLATFORM)
    fdf = replace_once(fdf, "!include OvmfPkg/VarStore.fdf.inc\n",
                       "!include OvmfPkg/VarStore.fdf.inc\n!include %s/QemuElogRegion.fdf.inc\n" % PLATFORM)
    fdf = replace_once(fdf, "INF  OvmfPkg/QemuFlashFvbServicesRuntimeDxe/FvbServicesSmm.inf\n",
                       "INF  OvmfPkg/QemuFlashFvbServicesRuntimeDxe/FvbServicesSmm.inf\n"
                       "!include %s/QemuPlatformDxe.fdf.inc\n" % PLATFORM)
    return fdf


def write_if_changed(path, text):
    if os.path.exists(path) and open(path).read() == text:
        return
    with open(path, "w") as out:
        out.write(text)


def main():
    source, output = sys.argv[1], sys.argv[2]
    read = lambda name: open(os.path.join(source, "OvmfPkg", name), newline="").read().replace("\r\n", "\n")
    os.makedirs(output, exist_ok=True)
    fdf_path = "%s/%s.fdf" % (os.path.basename(output.rstrip("/")), OUT_NAME)
    write_if_changed(os.path.join(output, OUT_NAME + ".dsc"), derive_dsc(read("OvmfPkgX64.dsc"), fdf_path))
    write_if_changed(os.path.join(output, OUT_NAME + ".fdf"), derive_fdf(read("OvmfPkgX64.fdf")))


if __name__ == "__main__":
    main()
