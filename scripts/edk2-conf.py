#!/usr/bin/env python3
"""Writes an EDK2 workspace's Conf/ from BaseTools' templates, with a build
rule of its own for C++ sources: they get CXX_FLAGS (language level, no
exceptions, no RTTI, no thread-safe statics, C linkage for the base packages'
library interfaces) on top of CC_FLAGS, which also reach the C that AutoGen
writes and so must stay C-only.

usage: edk2-conf.py EDK2_SOURCE CONF_DIR
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


def write_if_changed(path, text):
    if os.path.exists(path) and open(path).read() == text:
        return
    with open(path, "w") as out:
        out.write(text)


def main():
    source, conf = sys.argv[1], sys.argv[2]
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


if __name__ == "__main__":
    main()
