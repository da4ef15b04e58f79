#!/usr/bin/env python3
"""Fails when a room includes a room that stands above it, or when a public header includes a private one."""
import pathlib
import re
import sys

ROOMS = ["base", "kernels", "platform", "frame", "decoders", "filters", "picture/jpeg", "picture", "present", "render",
         "manager", "channels", "entry"]

root = pathlib.Path(__file__).resolve().parent.parent
# Headers of the system that only these folders see.
SYSTEM = {"xcb/": ("src/platform/x11",), "cairo": ("src/platform/raster",)}
system_include = re.compile(r'^\s*#\s*include\s+<([^>]+)>', re.M)
include = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)
faults = []


def room_of(path):
    """The room that a path under src/ lies in: a folder of the list, or one of its own within such a folder."""
    folders = path.split("/")[:-1]
    for depth in (2, 1):
        if "/".join(folders[:depth]) in ROOMS:
            return "/".join(folders[:depth])
    return None


for path in sorted((root / "src").rglob("*.[ch]*")):
    room = room_of(str(path.relative_to(root / "src")))
    if room is None:
        faults.append(f"{path.relative_to(root)}: its room is not in the list")
        continue
    for name in system_include.findall(path.read_text()):
        for prefix, folders in SYSTEM.items():
            if name.startswith(prefix) and not str(path.relative_to(root)).startswith(folders):
                faults.append(f"{path.relative_to(root)}: <{name}> is for {', '.join(folders)} only")
    for name in include.findall(path.read_text()):
        other = room_of(name)
        if other is not None and ROOMS.index(other) > ROOMS.index(room):
            faults.append(f"{path.relative_to(root)}: {room} must not include {name}")
for folder in ("include", "apps", "examples"):
    for path in sorted((root / folder).rglob("*.[ch]*")):
        for name in include.findall(path.read_text()):
            if room_of(name) is not None:
                faults.append(f"{path.relative_to(root)}: only public headers may be included, not {name}")
print("\n".join(faults) or f"{len(ROOMS)} rooms, no upward include")
sys.exit(bool(faults))
