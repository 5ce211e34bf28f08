#!/usr/bin/env python3
"""Prepares the EDK2 workspace the firmware builds in.

Conf/: BaseTools' templates, with a build rule of its own for C++ sources:
they get CXX_FLAGS (language level, no exceptions, no RTTI, no thread-safe
statics, C linkage for the base packages' library interfaces) on top of
CC_FLAGS, which also reach the C that AutoGen writes and so must stay C-only.

VornQemuPlatform/: the QEMU platform's DSC and FDF, OVMF's X64 ones (taken
from the EDK2 tree as they are) with the platform's own fragments spliced in
at fixed anchors. Everything the platform adds lives in QemuPlatform/*.inc;
this only places the includes, so that an EDK2 update shows up here as a
missing anchor rather than as a silently different firmware.

Files are rewritten only when their text changes, so builds stay
incremental.

usage: edk2-workspace.py EDK2_SOURCE WORKSPACE
"""
import os
import re
import sys

CXX_RULE = """[C++-Code-File]
    <InputFile>
        ?.cpp

    <ExtraDependency>
        $(MAKE_FILE)

    <OutputFile>
        $(OUTPUT_DIR)(+)${s_dir}(+)${s_base}.obj

    <Command.GCC>
        "$(CXX)" $(DEPS_FLAGS) $(CC_FLAGS) $(CXX_FLAGS) -c -o ${dst} $(INC) ${src}

"""

CXX_TOOL = """
# C++ sources (build rule C++-Code-File).
*_GCC5_X64_CXX_PATH  = DEF(GCC5_X64_PREFIX)g++
*_GCC5_X64_CXX_FLAGS = -std=gnu++20 -fno-exceptions -fno-rtti -fno-threadsafe-statics -include VornFirmwareBuild.h
"""

PLATFORM = "VornApeiLoggingPkg/QemuPlatform"
OUT_NAME = "VornOvmfX64"


def replace_once(text, anchor, replacement):
    if text.count(anchor) < 1:
        sys.exit("edk2-workspace.py: anchor not found in OVMF's files: %r" % anchor)
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


def write_conf(source, conf):
    templates = os.path.join(source, "BaseTools", "Conf")
    os.makedirs(conf, exist_ok=True)

    rules = open(os.path.join(templates, "build_rule.template")).read()
    # .cpp leaves the C rule (whatever case spellings it lists) for its own.
    rules = re.sub(r"^ +\?\.(cpp|Cpp|CPP|cc|CC)\n", "", rules, flags=re.M)
    rules = rules.replace("[C-Code-File]\n", CXX_RULE + "[C-Code-File]\n", 1)
    write_if_changed(os.path.join(conf, "build_rule.txt"), rules)

    tools = open(os.path.join(templates, "tools_def.template")).read()
    write_if_changed(os.path.join(conf, "tools_def.txt"), tools + CXX_TOOL)

    target = open(os.path.join(templates, "target.template")).read()
    write_if_changed(os.path.join(conf, "target.txt"), target)


def write_platform(source, output):
    read = lambda name: open(os.path.join(source, "OvmfPkg", name), newline="").read().replace("\r\n", "\n")
    os.makedirs(output, exist_ok=True)
    fdf_path = "%s/%s.fdf" % (os.path.basename(output.rstrip("/")), OUT_NAME)
    write_if_changed(os.path.join(output, OUT_NAME + ".dsc"), derive_dsc(read("OvmfPkgX64.dsc"), fdf_path))
    write_if_changed(os.path.join(output, OUT_NAME + ".fdf"), derive_fdf(read("OvmfPkgX64.fdf")))


def main():
    source, workspace = sys.argv[1], sys.argv[2]
    write_conf(source, os.path.join(workspace, "Conf"))
    write_platform(source, os.path.join(workspace, "VornQemuPlatform"))


if __name__ == "__main__":
    main()
