#!/usr/bin/env python3
"""Fails where the table of options, their numbers in corvane.h and the header's text of Corvane_SetChannelOption differ."""
import pathlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent
header = (root / "include/corvane/corvane.h").read_text()
table = (root / "src/channels/Options.cpp").read_text()
numbers = {name: int(value) for name, value in re.findall(r"(CORVANE_OPTION_\w+) = (\d+)", header)}
rows = re.findall(r"\{(CORVANE_OPTION_\w+), .*?\"((?:[^\"\\]|\\.)*)\"\}", table, re.S)
text = header.split("* Sets one option;")[1].split("*/")[0]
# "7, 8, 9, 10   left, right, ..." and what follows it, by number.
told = {}
for entry in re.findall(r"^ \*   (\d[\d, ]*?)\s{2,}(.*)$", text, re.M):
    told.update({int(number): entry[1] for number in entry[0].split(",")})
faults = []
for name, sentence in rows:
    if name not in numbers:
        faults.append(f"{name} has no number in the header")
    elif not told.get(numbers[name], "").startswith(sentence):
        faults.append(f"option {numbers[name]}: the header's text does not begin with \"{sentence}\"")
named = [name for name, _ in rows]
faults += [f"{name} stands in the header and in no row" for name in numbers if name not in named]
faults += [f"option {number} has a text and no row" for number in told if number not in numbers.values()]
if [numbers.get(name, 0) for name in named] != sorted(numbers.get(name, 0) for name in named):
    faults.append("the rows do not stand in the order of their numbers")
print("\n".join(faults) or f"{len(rows)} options: table, numbers and text agree")
sys.exit(bool(faults or not rows))
