#!/usr/bin/env python3
"""Compares exports.txt, the public C headers and the dynamic symbols of the library given; fails on a difference."""
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent
listed = set((root / "exports.txt").read_text().split())
header = "".join((root / f"include/corvane/{name}.h").read_text() for name in ("corvane", "jpegenc", "bitpacker"))
declared = set(re.findall(r"CORVANE_API\s+uint(?:32|64)_t\s+(\w+)\(", header))
lines = subprocess.run(["nm", "-D", "--defined-only", sys.argv[1]], check=True, capture_output=True, text=True).stdout
symbols = [line.split() for line in lines.splitlines()]
built = {words[-1].split("@")[0] for words in symbols if words[-2] in "TWVBDR"} - {"CORVANE_5"}
versioned = all("@@CORVANE_5" in words[-1] or words[-1] == "CORVANE_5" for words in symbols if words[-2] != "A")
imports = subprocess.run(["nm", "-D", "--undefined-only", sys.argv[1]], check=True, capture_output=True, text=True).stdout
xlib = re.findall(r"\bX[A-Z]\w*", imports)
# Each declaration has its thread word in the comment.
undocumented = [name for name in declared
                if not re.search(r"\[(?:any\*?|writer|reader)\]\s*\*/\s*(CORVANE_API[^;]*;\s*)*CORVANE_API[^;]*\b" + name + r"\(",
                                 header)]
faults = []
for what, names in (("listed, not declared", listed - declared), ("declared, not listed", declared - listed),
                    ("listed, not built", listed - built), ("built, not listed", built - listed),
                    ("without a thread word", undocumented), ("imported from Xlib", xlib)):
    if names:
        faults.append(f"{what}: {' '.join(sorted(names))}")
if not versioned:
    faults.append("a symbol lies outside the version node CORVANE_5")
print("\n".join(faults) or f"{len(listed)} exports agree")
sys.exit(bool(faults))
