#!/usr/bin/env python3
"""Checks the EDK2 metadata against the sources in seconds, without EDK2: the
faults that otherwise show only in a firmware build (make firmware) minutes
later, or in a platform that builds the package elsewhere.

- every file an .inf lists exists, and every module or library .cpp is listed
  by an .inf (or named in its folder's .inf comments with the reason);
- every GUID or protocol a source names, and every PCD it reads, is listed in
  its .inf (AutoGen defines only those), and the package's own ones are
  declared in the .dec;
- every library class the .dec declares has its header, every .inf the
  platform files name exists, and every .inf is built by a platform;
- the QEMU platform flashes every driver it builds;
- the interop profile (VORN_FIX_ALL) turns on every switch the .dec declares,
  and the module lists them all.

usage: edk2-metadata.py PACKAGE_DIR
Prints one line per fault and exits 1 if there is any.
"""
import glob
import os
import re
import sys

PACKAGE = "VornApeiLoggingPkg"
SOURCE_DIRS = ("Feature", "Library", "QemuPlatform")
GUID_USE = re.compile(r"\b(g[A-Z]\w*Guid)\b")
PCD_USE = re.compile(r"\b(?:Feature|Fixed)?PcdGet\w*\s*\(\s*(Pcd\w+)\s*\)")
# Comments, then string and character literals: what they name is not used.
GUID_DEFINITION = re.compile(r"\bEFI_GUID\s+(g\w+)\s*=")
# AutoGen's own: the token space PCD names carry, the module's file GUID.
AUTOGEN_GUIDS = {"gVornApeiLoggingPkgTokenSpaceGuid", "gEfiCallerIdGuid"}
NOT_CODE = re.compile(r'//[^\n]*|/\*.*?\*/|u?"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'', re.S)


def sections(path):
    """{section name (before any '.arch'): [entries]} of an INI-like EDK2 file."""
    result, current = {}, None
    for raw in open(path, newline=""):
        line = raw.split("#", 1)[0].strip()
        if line.startswith("[") and line.endswith("]"):
            current = [name.strip().split(".")[0] for name in line[1:-1].split(",")]
            for name in current:
                result.setdefault(name, [])
        elif line and current:
            for name in current:
                result[name].append(line)
    return result


def entry_names(entries):
    """The first field of each entry; a PCD's name without its token space."""
    return {re.split(r"[\s|=]", entry)[0].split(".")[-1] for entry in entries}


def main():
    root = os.path.abspath(sys.argv[1])
    faults = []
    rel = lambda path: os.path.relpath(path, root)

    dec = sections(os.path.join(root, PACKAGE + ".dec"))
    declared = entry_names(dec.get("Guids", []) + dec.get("Protocols", []) + dec.get("Ppis", []))
    declared_pcds = entry_names(sum((v for k, v in dec.items() if k.startswith("Pcds")), []))
    for entry in dec.get("LibraryClasses", []):
        name, header = entry.split("|")
        if not os.path.isfile(os.path.join(root, header.strip())):
            faults.append("%s.dec: library class %s has no header %s" % (PACKAGE, name, header))

    files = lambda pattern: sorted(sum((glob.glob(os.path.join(root, directory, "**", pattern), recursive=True)
                                        for directory in SOURCE_DIRS), []))
    infs = files("*.inf")
    # GUIDs the package's sources define themselves need no .inf line.
    defined = AUTOGEN_GUIDS.union(*(GUID_DEFINITION.findall(open(path).read()) for path in files("*.cpp")))
    listed = set()
    for inf in infs:
        folder, info = os.path.dirname(inf), sections(inf)
        sources = [os.path.normpath(os.path.join(folder, entry.split("|")[0])) for entry in info.get("Sources", [])]
        listed.update(sources)
        names = entry_names(info.get("Guids", []) + info.get("Protocols", []) + info.get("Ppis", []))
        pcds = entry_names(sum((v for k, v in info.items() if "Pcd" in k), []))
        for source in sources:
            if not os.path.isfile(source):
                faults.append("%s: lists %s, which does not exist" % (rel(inf), rel(source)))
                continue
            if not source.endswith((".c", ".cpp", ".h")):
                continue
            code = NOT_CODE.sub("", open(source).read())
            for guid in sorted(set(GUID_USE.findall(code)) - names - defined):
                faults.append("%s: uses %s, not listed in %s" % (rel(source), guid, rel(inf)))
            for pcd in sorted(set(PCD_USE.findall(code)) - pcds):
                faults.append("%s: reads %s, not listed in %s" % (rel(source), pcd, rel(inf)))
        for name in sorted(n for n in names | pcds if n.startswith(("gVorn", "PcdVorn")) and
                           n not in declared | declared_pcds):
            faults.append("%s: %s is not declared in %s.dec" % (rel(inf), name, PACKAGE))

    for source in files("*.cpp"):
        notes = "".join(open(inf).read() for inf in glob.glob(os.path.join(os.path.dirname(source), "*.inf")))
        if source not in listed and os.path.basename(source) not in notes:
            faults.append("%s: listed by no .inf" % rel(source))

    platform = "".join(open(path).read() for path in [os.path.join(root, PACKAGE + ".dsc")] +
                       sorted(glob.glob(os.path.join(root, "QemuPlatform", "*.inc"))))
    named = {os.path.normpath(os.path.join(root, path)) for path in re.findall(PACKAGE + r"/(\S+\.inf)", platform)}
    for path in sorted(named - set(infs)):
        faults.append("platform files name %s, which does not exist" % rel(path))
    for inf in sorted(set(infs) - named):
        faults.append("%s: built by no platform (%s.dsc, QemuPlatform/*.inc)" % (rel(inf), PACKAGE))

    # The platform's drivers go into the flash image too.
    components = {entry.split()[0] for entry in sections(os.path.join(root, "QemuPlatform", "QemuPlatform.dsc.inc"))
                  .get("Components", []) if entry.split()[0].endswith(".inf") and "|" not in entry}
    flashed = set(re.findall(r"^INF\s+(\S+)", open(os.path.join(root, "QemuPlatform", "QemuPlatformDxe.fdf.inc")).read(),
                             re.M))
    for path in sorted(components ^ flashed):
        faults.append("QemuPlatform: %s is in only one of QemuPlatform.dsc.inc and QemuPlatformDxe.fdf.inc" % path)

    switches = {pcd for pcd in declared_pcds if pcd.startswith("PcdVornFix")}
    libs = open(os.path.join(root, "VornApeiLoggingLibs.dsc.inc")).read()
    interop = re.search(r"!if \$\(VORN_FIX_ALL\) == TRUE\n(.*?)!endif", libs, re.S)
    on = set(re.findall(r"\.(PcdVornFix\w+)\|TRUE", interop.group(1))) if interop else set()
    module = entry_names(sections(os.path.join(root, "Feature", "VornApeiLoggingSmm",
                                                "VornApeiLoggingSmm.inf")).get("FeaturePcd", []))
    for pcd in sorted(switches - on):
        faults.append("VornApeiLoggingLibs.dsc.inc: the interop profile leaves %s off" % pcd)
    for pcd in sorted(switches - module):
        faults.append("VornApeiLoggingSmm.inf: does not list the switch %s" % pcd)

    for fault in faults:
        print(fault)
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
