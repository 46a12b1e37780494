#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: run.py LAYERS_PY TREE

Unpacks a tree and compares what scripts/layers.py says about it with what the tree's text expects. A tree is one
text: "=== path" begins a file, "=== expected" the findings (none: the tree passes), "=== path/" is an empty folder.
"""
import os
import subprocess
import sys
import tempfile


def unpack(text, root):
    """Writes the files below root; returns the expected lines."""
    files = {}
    for line in text.splitlines(keepends=True):
        if line.startswith("=== "):
            name = line[4:].strip()
            assert name not in files, f"{name} stands twice in the tree"
            files[name] = ""
        elif files:
            files[name] += line
    expected = files.pop("expected")
    for path, content in files.items():
        place = os.path.join(root, path)
        if path.endswith("/"):
            os.makedirs(place)
            continue
        os.makedirs(os.path.dirname(place), exist_ok=True)
        with open(place, "w", encoding="utf-8") as file:
            file.write(content)
    return expected


def main():
    layers, tree = sys.argv[1:]
    with open(tree, encoding="utf-8") as file:
        text = file.read()
    with tempfile.TemporaryDirectory() as root:
        expected = unpack(text, root)
        run = subprocess.run([sys.executable, "-B", layers, root], capture_output=True, text=True, check=False)
    status = 1 if expected else 0
    if (run.stdout, run.returncode, run.stderr) == (expected, status, ""):
        return 0
    print(f"expected (exit status {status}):\n{expected}\ngot (exit status {run.returncode}):\n{run.stdout}{run.stderr}")
    return 1


if __name__ == "__main__":
    sys.exit(main())
