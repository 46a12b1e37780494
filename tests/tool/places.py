#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: places.py ROOT

A verb is a file and a line: outside its file no other line of the product names what belongs to it.
"""
import os
import re
import sys


def main():
    root = sys.argv[1]
    folder = os.path.join(root, "tools/ovra")
    lines = []
    for base, _, files in os.walk(os.path.join(root, "tools")):
        for name in files:
            path = os.path.join(base, name)
            with open(path, encoding="utf-8") as file:
                lines += [(path, number, line) for number, line in enumerate(file, 1)]
    with open(os.path.join(folder, "verbs.def"), encoding="utf-8") as file:
        verbs = re.findall(r"^VERB\((\w+)\)$", file.read(), re.MULTILINE)
    failed = len(verbs) < 15
    for verb in verbs:
        own = os.path.join(folder, f"{verb}.cpp")
        names = re.compile(rf"\bVERB\({verb}\)|\b(make|run)_{verb}\b|\b{verb}(_verb\b|_options\b|\.cpp\b)")
        places = [f"{path}:{number}" for path, number, line in lines if path != own and names.search(line)]
        if not os.path.isfile(own) or len(places) != 1 or not places[0].startswith(folder + "/verbs.def:"):
            print(f"{verb}: one line of verbs.def should name it, and these do: {' '.join(places)}")
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
