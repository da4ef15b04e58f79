#!/usr/bin/env python3
"""Fails when a room or sub-room includes one above it, when a header is included that is private to another folder, or a
header of the system outside its folders, and when a public header includes a private one. Fails as well when a class or a function is too large, when a handle is cast outside one place, and when a function outside base/ is
exempt from lock analysis."""
import pathlib
import re
import sys

# The rooms, lowest first, each with its sub-rooms, lowest first; "" stands for the files in the room itself.
ROOMS = {
    "base": [""],
    "kernels": [""],
    "platform": ["", "raster", "x11", "blitter", "sound"],
    "frame": [""],
    "decoders": [""],
    "audio": [""],
    "filters": [""],
    "picture": ["jpeg", ""],
    "present": [""],
    "render": [""],
    "manager": [""],
    "channels": [""],
    "entry": [""],
}
# The headers of a folder that other folders may include; of a folder that is not named here, all. A header whose first
# comment says "Private to NAME/" is for the folder of that name alone.
FACES = {
    "platform/x11": ["Beam.h", "WindowGrab.h", "WindowSink.h", "WindowWatch.h"],
    "platform/blitter": ["Blitter.h"],
    "platform/sound": ["SoundDevice.h"],
}
# Headers of the system by the start of their names, and the folders and files that may include them.
SYSTEM = {
    "xcb/": ["platform/x11/"],
    "cairo": ["platform/raster/"],
    "dlfcn.h": ["platform/Library.cpp"],
    "hwy/": ["kernels/"],
    "SDL": ["platform/sound/"],
    "libavcodec/": ["decoders/FFmpegContext.cpp", "decoders/FFmpegDecoder.cpp", "decoders/FFmpegSoundDecoder.cpp"],
    "libavutil/": ["decoders/FFmpegContext.cpp", "decoders/FFmpegDecoder.cpp", "decoders/FFmpegSoundDecoder.cpp", "decoders/G7221Kernel.cpp", "decoders/SampleConverter.cpp", "decoders/SampleConverter.h"],
    "libswresample/": ["decoders/SampleConverter.cpp"],
    "libswscale/": ["decoders/FFmpegDecoder.cpp", "filters/FilterResize.cpp", "filters/NearestSamples.cpp"],
    "libav": [],    # all others of FFmpeg
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
    """The rank of a file: it may include files of its rank and below. None: its room is not listed."""
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
for folder in ("include", "apps", "examples", "sidelibs"):
    for file in sorted((root / folder).rglob("*.[ch]*")):
        for quote, name in include.findall(file.read_text()):
            if name.split("/")[0] in ROOMS:
                faults.append(f"{file.relative_to(root)}: only public headers may be included, not {name}")
# ---- Limits of the code, and what may stand in one place only ----

MOST_FIELDS = 25            # of a class
MOST_LINES = 60             # of a function, between its braces
CASTS = "entry/Handle.h"    # the one place that casts a handle
PLAIN_HANDLES = {"HandleObject", "JpegEncoder", "BitPacker"}

comment_or_literal = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|^\s*#(?:[^\n]*\\\n)*[^\n]*', re.S | re.M)
class_head = re.compile(r"\b(?:class|struct|union)\s+(?:[A-Z_]+(?:\([^)]*\))?\s+)*(\w+)\b[^;=()]*$")
annotation = re.compile(r"\b(?:GUARDED_BY|ACQUIRE\w*|RELEASE\w*|REQUIRES\w*|EXCLUDES|TRY_ACQUIRE|alignas)\((?:[^()]|\([^()]*\))*\)")


def blank(found):
    return re.sub(r"[^\n]", " ", found.group())


def fields_of(body):
    """The number of members in the text of a class between its braces, without the text in inner braces."""
    count = 0
    body = re.sub(r"\b(?:public|protected|private):", "", annotation.sub("", body))
    for statement in body.split(";"):
        statement = statement.strip()
        while (plain := re.sub(r"<[^<>;{}]*>", "", statement)) != statement:
            statement = plain
        if not statement or re.match(r"(?:using|friend|typedef|static|template|enum|class|struct|union)\b", statement):
            continue
        declared = re.split(r"=|\{", statement)[0]
        if "(" not in declared and "operator" not in declared and re.search(r"\w", declared):
            count += 1 + len(re.findall(r",\s*\w+\s*(?=[,={\[]|$)", statement))
    return count


def check_sizes(path, code):
    """Finds classes and functions by the text before each brace, in a file without its comments and literals."""
    stack, since = [], 0    # per open brace: kind, name, place after it, text of its own level
    own = [""]
    for at, char in enumerate(code):
        if char == "{":
            head = code[since:at]
            outer = stack[-1][0] if stack else "namespace"
            found = class_head.search(head)
            if re.search(r"\bnamespace\b[^;(]*$|\bextern\s*$", head):
                kind = "namespace"
            elif found and not re.search(r"\benum\b", head):
                kind = "class"
            elif outer in ("namespace", "class") and "(" in annotation.sub("", head) and not re.search(r"=\s*$", head):
                kind = "function"
            else:
                kind = "other"
            name = found.group(1) if kind == "class" else " ".join(head.split())[:60]
            stack.append((kind, name, at))
            own.append("")
            since = at + 1
        elif char == "}" and stack:
            kind, name, begin = stack.pop()
            text = own.pop()
            line = code.count("\n", 0, begin) + 1
            if kind == "class" and (fields := fields_of(text)) > MOST_FIELDS:
                faults.append(f"{path}:{line}: {name} has {fields} fields, more than {MOST_FIELDS}")
            if kind == "function" and (lines := code.count("\n", begin, at)) > MOST_LINES:
                faults.append(f"{path}:{line}: {lines} lines, more than {MOST_LINES}: {name}")
            own[-1] += ";" if kind == "function" else "{}"
            since = at + 1
        else:
            own[-1] += char
            if char == ";":
                since = at + 1


codes = {}
for file in sorted((root / "src").rglob("*.[ch]*")):
    codes[str(file.relative_to(root / "src"))] = comment_or_literal.sub(blank, file.read_text())
for file in sorted((root / "sidelibs").rglob("*.[ch]*")):
    codes[str(file.relative_to(root))] = comment_or_literal.sub(blank, file.read_text())
handles, bases = set(PLAIN_HANDLES), None
while bases != handles:    # all classes that derive from them, too
    bases = set(handles)
    for code in codes.values():
        for name, derived in re.findall(r"\bclass\s+(\w+)\b[^;{()]*?:\s*public\s+(\w+)", code):
            if derived in handles:
                handles.add(name)
cast = re.compile(rf"(?:static|reinterpret)_cast<\s*(?:const\s+)?(?:\w+::)*({'|'.join(sorted(handles))})\b[\w\s]*\*")
for path, code in codes.items():
    check_sizes(path, code)
    for number, line in enumerate(code.splitlines(), 1):
        if "NO_THREAD_SAFETY_ANALYSIS" in line and not path.startswith("base/"):
            faults.append(f"{path}:{number}: an exemption from lock analysis outside base/")
        if path != CASTS and (found := cast.search(line)):
            faults.append(f"{path}:{number}: a cast of a handle to {found.group(1)} outside {CASTS}")

print("\n".join(faults) or f"{len(ROOMS)} rooms, {count} files: no upward and no private include, no limit passed")
sys.exit(bool(faults or count == 0))
