#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: ctest_lines.py ROOT BUILD PRESET FOLDERS

Each line of the documents that has ctest choose tests by name or label chooses at least one. A line for the other preset
is left to that build, and one that names a folder of tests which is not among FOLDERS (between commas) to a whole build,
and so are those of which each runs a folder's tests once more.
"""
import pathlib
import re
import subprocess
import sys

root, build, preset, folders = sys.argv[1:]
root = pathlib.Path(root)
folders = folders.split(",")
all_folders = {place.parent.name for place in (root / "tests").glob("*/CMakeLists.txt")}
AGAIN = {"locale", "valgrind"}
LINE = re.compile(r"\bctest\b[^`\n]*?\s(-[RL])\s+([^\s`]+)[^`\n]*")

found = 0
for document in sorted([root / "README.md", *(root / "docs").glob("*.md")]):
    for line in LINE.finditer(document.read_text()):
        found += 1
        of_preset = re.search(r"--preset (\w+)", line[0])
        folder = re.match(r"\w+", line[2])[0]
        if of_preset and of_preset[1] != preset or folder in all_folders - set(folders):
            continue
        if folder in AGAIN and "rt" not in folders:
            continue
        chosen = subprocess.run(["ctest", "--test-dir", build, "-N", line[1], line[2]], capture_output=True, text=True,
                                check=True).stdout
        count = int(re.search(r"^Total Tests: (\d+)", chosen, re.MULTILINE)[1])
        print(f"{document.name}: {line[0]}: {count} tests")
        if count == 0:
            sys.exit(1)
if found == 0:
    sys.exit(f"no ctest line in the documents of {root}")
