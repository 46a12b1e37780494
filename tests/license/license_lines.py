#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: license_lines.py [ROOT]

Fails on a source that git knows and whose first line, after one for the system's loader of scripts, does not name the
license: C, C++, CMake, Python, shell and man pages.
"""
import os
import re
import subprocess
import sys

NAMED = "SPDX-License-Identifier: MIT"
# Headers are included by C of every age, which knows no other comment.
KINDS = {
    r"\.h": f"/* {NAMED} */",
    r"\.(c|cpp)": f"// {NAMED}",
    r"\.(py|sh|cmake|cmake\.in)|(^|/)CMakeLists\.txt": f"# {NAMED}",
    r"(^|/)man/[^/]*\.[1-8]": f'.\\" {NAMED}',
}
SCRIPT = re.compile(r"#!\S*/(env )?(\S* )?(ba|da|)sh\b|#!.*\bpython")


def tracked(root):
    listed = subprocess.run(["git", "-C", root, "ls-files", "-z"], stdout=subprocess.PIPE, text=True, check=True)
    return [name for name in listed.stdout.split("\0") if name and os.path.isfile(os.path.join(root, name))]


def line_for(name, text):
    """The line that a file must have, or None where it is no source."""
    for pattern, line in KINDS.items():
        if re.search(rf"({pattern})$", name):
            return line
    return f"# {NAMED}" if SCRIPT.match(text) else None


def has_line(name, text):
    lines = text.split("\n", 2)
    if lines[0].startswith("#!"):
        lines = lines[1:]
    return bool(lines) and lines[0] == line_for(name, text)


def sources(root):
    """(name, text) of each source."""
    for name in tracked(root):
        try:
            with open(os.path.join(root, name), encoding="utf-8") as file:
                text = file.read()
        except UnicodeDecodeError:
            continue
        if line_for(name, text) is not None:
            yield name, text


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    found = list(sources(root))
    kinds = {line_for(name, text) for name, text in found}
    without = [(name, line_for(name, text)) for name, text in found if not has_line(name, text)]
    for name, line in without:
        print(f"{name}: the first line is not {line}")
    if len(found) < 100 or kinds != set(KINDS.values()):
        print(f"{len(found)} sources of {len(kinds)} kinds: not all that there are")
        return 1
    print(f"{len(found)} sources, {len(without)} without the line")
    return 1 if without else 0


if __name__ == "__main__":
    sys.exit(main())
