#!/usr/bin/env python3
"""Writes the definitions of a package's GUIDs (its .dec [Guids] and
[Protocols] sections) as C++, for the simulator build: the firmware build
gets the same definitions from AutoGen, so the .dec stays their only source.

usage: dec-guids.py PACKAGE.dec OUTPUT.cpp
"""
import re
import sys

ENTRY = re.compile(r"^\s*(g\w+)\s*=\s*(\{.*\})\s*$")


def main():
    dec, output = sys.argv[1], sys.argv[2]
    section = None
    lines = []
    for raw in open(dec):
        line = raw.split("#", 1)[0].rstrip()
        if line.startswith("["):
            section = line.strip("[]").split(".")[0]
            continue
        match = ENTRY.match(line)
        if section in ("Guids", "Protocols") and match:
            lines.append("EFI_GUID %s = %s;\n" % match.groups())
    text = "// Generated from %s by dec-guids.py.\n#include <Uefi.h>\n\n" % dec.rsplit("/", 1)[-1] + "".join(lines)
    with open(output, "w") as out:
        out.write(text)


if __name__ == "__main__":
    main()
