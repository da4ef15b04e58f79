#!/usr/bin/env python3
"""Fails when a room or sub-room includes one that stands above it, when a header is included that is private to another
folder, or a header of the system outside the folders that it is for, and when a public header includes a private one."""
import pathlib
import re
import sys

# From the ground up, each with its sub-rooms from the ground up; "" are the files in the room itself.
ROOMS = {
    "base": [""],
    "kernels": [""],
    "platform": ["", "raster", "x11", "blitter"],
    "frame": [""],
    "decoders": [""],
    "filters": [""],
    "picture": ["jpeg", ""],
    "present": [""],
    "render": [""],
    "manager": [""],
    "channels": [""],
    "entry": [""],
}
# The headers of a folder that others may include; all of a folder that is not named here. A header whose first comment
# says "Private to NAME/" is for the folder of that name alone, wherever it lies.
FACES = {
    "platform/x11": ["Beam.h", "WindowGrab.h", "WindowSink.h", "WindowWatch.h"],
    "platform/blitter": ["Blitter.h"],
}
# Headers of the system by the start of their names, and the folders and files that they are for.
SYSTEM = {
    "xcb/": ["platform/x11/"],
    "cairo": ["platform/raster/"],
    "dlfcn.h": ["platform/Library.cpp"],
    "hwy/": ["kernels/"],
    "libavcodec/": ["decoders/FFmpegDecoder.cpp"],
    "libavutil/": ["decoders/FFmpegDecoder.cpp", "decoders/SampleConverter.cpp", "decoders/SampleConverter.h"],
    "libswresample/": ["decoders/SampleConverter.cpp"],
    "libswscale/": ["decoders/FFmpegDecoder.cpp", "filters/FilterResize.cpp", "filters/NearestSamples.cpp"],
    "libav": [],    # any other of FFmpeg
    "libsw": [],
}

root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
include = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.M)
private_to = re.compile(r"\A(?://[^\n]*\n)*?//[^\n]*\bPrivate to ([\w/]+)/\.")
faults = []


def split(path):
    """Room and sub-room of a file of src/, and the folder that both make."""
    parts = pathlib.PurePosixPath(path).parts
    return parts[0], "/".join(parts[1:-1]), "/".join(parts[:-1])


def place(path):
    """Where a file stands: a greater place may include a lesser one. None: in no room that is listed."""
    room, sub, _ = split(path)
    if room not in ROOMS or sub not in ROOMS[room]:
        return None
    return list(ROOMS).index(room), ROOMS[room].index(sub)


def may_see(path, header):
    folder, other = split(path)[2], split(header)[2]
    if folder == other:
        return True
    if header.split("/")[-1] not in FACES.get(other, [header.split("/")[-1]]):
        return False
    mark = private_to.match((root / "src" / header).read_text())
    return mark is None or f"/{folder}".endswith(f"/{mark.group(1)}")


def check(path, quote, name):
    if quote == "<":
        for prefix, users in SYSTEM.items():
            if name.startswith(prefix):
                if not any(path == user or user.endswith("/") and path.startswith(user) for user in users):
                    faults.append(f"{path}: <{name}> is for {', '.join(users) or 'nobody'} only")
                break
        if name.split("/")[0] in ROOMS:
            faults.append(f"{path}: <{name}> is no header of the system")
    elif name.startswith("corvane/"):
        return
    elif place(name) is None or not (root / "src" / name).is_file():
        faults.append(f'{path}: "{name}" is no header of a room by its whole name')
    elif place(name) > place(path):
        faults.append(f"{path}: must not include {name}, which stands above")
    elif not may_see(path, name):
        faults.append(f"{path}: {name} is private")


count = 0
for file in sorted((root / "src").rglob("*")):
    path = str(file.relative_to(root / "src"))
    if file.is_dir() or path == "CMakeLists.txt":
        continue
    count += 1
    if place(path) is None:
        faults.append(f"{path}: its room is not in the list")
        continue
    for quote, name in include.findall(file.read_text()):
        check(path, quote, name)
for name in [f"{folder}/{face}" for folder, faces in FACES.items() for face in faces] + sum(SYSTEM.values(), []):
    if not (root / "src" / name).exists():
        faults.append(f"{name}: stands in a list of {pathlib.Path(__file__).name}, and is not there")
for folder in ("include", "apps", "examples"):
    for file in sorted((root / folder).rglob("*.[ch]*")):
        for quote, name in include.findall(file.read_text()):
            if name.split("/")[0] in ROOMS:
                faults.append(f"{file.relative_to(root)}: only public headers may be included, not {name}")
print("\n".join(faults) or f"{len(ROOMS)} rooms, {count} files: no upward and no private include")
sys.exit(bool(faults or count == 0))
