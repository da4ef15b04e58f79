#!/usr/bin/env python3
"""Fails when the first program in the README is not the one that is built and run, when a package that is installed has no
reason there, and when a room has no row in the architecture."""
import pathlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent
readme = (root / "README.md").read_text()
faults = []
if (root / "examples/first.c").read_text() not in readme:
    faults.append("README.md: its first program is not examples/first.c")
packages = re.search(r"packages=\((.*?)\)", (root / "scripts/bootstrap.sh").read_text(), re.S).group(1).split()
faults += [f"README.md: no reason for {name}" for name in packages if f"`{name}`" not in readme]
header = (root / "include/corvane/corvane.h").read_text()
loop = re.findall(r"^ \*     (.*)$", header[:header.index(" * STATUS")], re.M)
compiled = [line[4:] for line in (root / "tests/entry/header_c99.c").read_text().splitlines() if line.startswith("    ")]
if not loop or loop != compiled[1:]:
    faults.append("corvane.h: the loop in its first lines is not the one in tests/entry/header_c99.c")
architecture = (root / "docs/architecture.md").read_text()
faults += [f"docs/architecture.md: no room {path.name}" for path in sorted((root / "src").iterdir())
           if path.is_dir() and any(path.iterdir()) and f"`{path.name}/`" not in architecture]
print("\n".join(faults) or "README and architecture agree with the tree")
sys.exit(bool(faults))
