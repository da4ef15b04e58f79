#!/usr/bin/env python3
"""Fails when a name in backticks in the documents is not in the code: words like CamelCase, m_member and CORVANE_NAME as
words of the code without its comments, Class::Method as a member of that class, files and folders as such. In indented
blocks, where the paths of frames and stills are listed, each Class::Method is checked.

No variable, member or function of the C++ code is declared in snake_case, but for the syntax elements of ITU-T H.264 and
names of public headers and of interfaces of others."""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
DOCUMENTS = [root / "README.md", root / "CONTRIBUTING.md", root / "bench/README.md", root / "scripts/README.md", *sorted((root / "docs").glob("*.md"))]
CODE = ["src", "include", "apps", "sidelibs", "tests", "fuzz", "bench", "examples", "cmake"]
# Files that a build or a run makes, and the names of ctest's tests.
NOT_IN_TREE = re.compile(r"/|build/|out/|PREFIX/|(tree|package|play|shaken)/")
# Names of other people's code.
FOREIGN = {"Debug", "Release", "Xvfb"}

# Syntax elements that decoders/H264Syntax.h does not declare, and what the standard asks of a mutex.
SNAKE = {"profile_idc", "chroma_format_idc", "slice_type", "try_lock", "try_lock_until", "lock_shared", "unlock_shared"}
SYNTAX = root / "src/decoders/H264Syntax.h"

literal_or_comment = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'', re.S)
sources = {}
for folder in CODE:
    for file in (root / folder).rglob("*"):
        if file.suffix in (".h", ".c", ".cpp"):
            sources[file] = literal_or_comment.sub(lambda found: " " + "\n" * found[0].count("\n"), file.read_text())
        elif file.name == "CMakeLists.txt" or file.suffix in (".cmake", ".sh", ".py"):
            sources[file] = file.read_text()
words = set(re.findall(r"\w+", "\n".join(sources.values())))
files = {path.name for folder in [*CODE, "scripts", "docs", ".ci"] for path in (root / folder).rglob("*.*")}
files |= {path.name for path in root.iterdir()}
stems = {file.stem for file in sources}


def bodies(name):
    """The code between the braces of each class, structure, enumeration or namespace of this name."""
    begin = re.compile(rf"\b(?:class|struct|enum|union|namespace)\s[^;{{}}()]*\b{name}\b[^;{{}}()]*\{{")
    for code in sources.values():
        for found in begin.finditer(code):
            depth, at = 1, found.end()
            while depth > 0 and at < len(code):
                depth += {"{": 1, "}": -1}.get(code[at], 0)
                at += 1
            yield code[found.end():at]


def has_member(qualified):
    *scopes, member = qualified.split("::")
    if any(re.search(rf"\b{qualified}\b", code) for code in sources.values()):
        return True
    return any(re.search(rf"\b{member}\b", body) for body in bodies(scopes[-1]))


def missing(name):
    """Whether `name` looks like a name of the code and is not there."""
    name = re.sub(r"\(.*\)$", "", name)
    if name.startswith("."):    # an ending, or a hidden file
        return False
    if re.fullmatch(r"[\w*./<>-]+", name) and ("/" in name or re.search(r"\.(h|c|cpp|py|sh|md|txt|cmake)$", name)):
        if NOT_IN_TREE.match(name):
            return False
        pattern = re.sub(r"<\w+>", "*", name).rstrip("/")
        # As such, in src/ or a room of it, or without its ending, which stands for the pair of files.
        bases = (root, *(root / base for base in ("src", "include", "include/corvane")), *(root / "src").glob("*/"))
        ends = ("", ".*") if "/" in name else ("",)
        return not any(any(base.glob(pattern + end)) for base in bases for end in ends) and name not in files
    if re.fullmatch(r"(\w+::)+\w+", name):
        return not name.startswith("std::") and not has_member(name)
    if re.fullmatch(r"m_\w+|k[A-Z]\w+|[A-Z]\w*[a-z]\w*|(CORVANE|PF)_[A-Z0-9_]+\*?", name):
        if name.endswith("*"):
            return not any(word.startswith(name[:-1]) for word in words)
        return name not in words and name not in stems and name not in FOREIGN
    return False


faults, count = [], 0
for document in DOCUMENTS:
    if not document.exists():
        continue
    fenced = False
    for number, line in enumerate(document.read_text().splitlines(), 1):
        if line.startswith("```"):
            fenced = not fenced
        if fenced:
            continue
        block = line.startswith("    ") and "`" not in line
        for name in re.findall(r"\b[A-Z]\w*(?:::\w+)+", line) if block else re.findall(r"`([^`]+)`", line):
            count += 1
            if missing(name):
                faults.append(f"{document.relative_to(root)}:{number}: no {name} in the tree")
# A type, then a name; in structured bindings several names.
DECLARED = re.compile(r"""(?:\b(?:auto|int|bool|char|float|double|unsigned|void|\w+_t|[A-Z]\w*)|>)[\s&*]+(?:const\s+)?
                          ([a-z]\w*_\w+)\s*(?=[=;,:){\[(])""", re.X)
BINDINGS = re.compile(r"\bauto\s*&{0,2}\s*\[([^\]]*)\]")


def declared(code):
    """Each name in snake_case that `code` declares, and where; m_ and a type's _t are no part of a name."""
    for found in DECLARED.finditer(code):
        yield found[1], found.start(1)
    for found in BINDINGS.finditer(code):
        for name in re.findall(r"\w+", found[1]):
            yield name, found.start()


syntax = {name for name, _ in declared(sources[SYNTAX])}
for file, code in sources.items():
    if file.suffix not in (".h", ".cpp") or "include" in file.relative_to(root).parts:
        continue
    for name, at in declared(code):
        plain = re.sub(r"^m_|_t$|^static_assert$", "", name)
        if "_" in plain and name not in SNAKE and name not in syntax:
            faults.append(f"{file.relative_to(root)}:{code[:at].count(chr(10)) + 1}: {name} is not in camelCase")

print("\n".join(faults) or f"{count} names in documents are those of the tree")
sys.exit(bool(faults or count == 0))
