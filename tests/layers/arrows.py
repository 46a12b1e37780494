#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: arrows.py LAYERS_PY

Holds every arrow of arrows.txt, those that are and those that are not, against what scripts/layers.py says about a
tree in which each folder includes each header.
"""
import os
import subprocess
import sys
import tempfile


def table():
    """({header: its name in an include}, {(folder, header): allowed})"""
    headers, arrows, columns = {}, {}, None
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "arrows.txt"), encoding="utf-8") as file:
        for fields in (line.split() for line in file if not line.startswith("#")):
            if columns is None:
                columns = fields
            elif len(fields) == 2:
                headers[fields[0]] = fields[1]
            else:
                folder, *marks = fields
                assert len(marks) == len(columns) and set(marks) <= {"+", "."}, folder
                arrows |= {(folder, column): mark == "+" for column, mark in zip(columns, marks)}
    assert set(columns) == set(headers)
    return headers, arrows


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def main():
    headers, arrows = table()
    expected = set()
    with tempfile.TemporaryDirectory() as root:
        for name in headers.values():
            path = name[1:-1] if name[0] == '"' else f"include/{name[1:-1]}"
            write(os.path.join(root, path), "")
        for folder in {folder for folder, _ in arrows}:
            write(os.path.join(root, folder, "arrows.cpp"), "".join(f"#include {name}\n" for name in headers.values()))
        for line, (header, name) in enumerate(headers.items(), 1):
            expected |= {f"{folder}/arrows.cpp:{line}: {folder} may not include {name[1:-1]}"
                         for folder, column in arrows if column == header and not arrows[folder, column]}
        run = subprocess.run([sys.executable, "-B", sys.argv[1], root], capture_output=True, text=True, check=False)
    got = set(run.stdout.splitlines())
    for line in sorted(expected - got):
        print(f"accepted, though it must be refused: {line}")
    for line in sorted(got - expected):
        print(f"refused, though it must be accepted: {line}")
    return 0 if got == expected and run.returncode == 1 and not run.stderr else 1


if __name__ == "__main__":
    sys.exit(main())
