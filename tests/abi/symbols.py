#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: symbols.py LIBRARY_FOLDER LIBRARY MAP COMPILER HEADER...

Four lists of a library's functions must be the same: tests/abi/symbols.txt, the dynamic symbols of the library, the
functions that its headers declare, and the names of its version script.
"""
import os
import re
import subprocess
import sys

import elf

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))


def declared(compiler, header):
    """Names of the functions that the header itself declares, not what it includes."""
    run = subprocess.run([compiler, "-E", "-x", "c", f"-I{ROOT}/include", header],
                         capture_output=True, text=True, check=True)
    text, own = [], False
    for line in run.stdout.splitlines():
        marker = re.match(r'# \d+ "(.*?)"', line)
        if marker:
            own = os.path.realpath(marker.group(1)) == os.path.realpath(header)
        elif own and not line.startswith("#"):
            text.append(line)
    text = "\n".join(text)
    text = re.sub(r"__attribute__\s*\(\(.*?\)\)", "", text)
    while re.search(r"\{[^{}]*\}", text):
        text = re.sub(r"\{[^{}]*\}", " body ", text)
    # A type, the name, its arguments: a function. A typedef of a function type declares none.
    statements = (statement.strip() for statement in text.split(";"))
    return [re.match(r"[\w\s*]*?\b(\w+)\s*\(", statement).group(1) for statement in statements
            if not statement.startswith("typedef") and re.match(r"[\w\s*]+[\s*]\w+\s*\(", statement)]


def scripted(path):
    """{node: names} of a version script; an anonymous one has the node "-"."""
    with open(path, encoding="utf-8") as file:
        text = re.sub(r"/\*.*?\*/|#[^\n]*", " ", file.read(), flags=re.DOTALL)
    nodes = {}
    for node, body in re.findall(r"([\w.]*)\s*\{(.*?)\}", text, re.DOTALL):
        names, scope = nodes.setdefault(node or "-", []), "global"
        for word in re.findall(r"(?:global|local)\s*:|[^\s;:]+", body):
            if word.endswith(":"):
                scope = word.rstrip(": ")
            elif scope == "global":
                names.append(word)
    return nodes


def differences(what, expected, got):
    return ([f"{what} lacks {name}" for name in sorted(set(expected) - set(got))]
            + [f"{what} has {name}, which tests/abi/symbols.txt does not list"
               for name in sorted(set(got) - set(expected))]
            + [f"{what} has {name} twice" for name in sorted({name for name in got if list(got).count(name) > 1})])


def main():
    folder, library, script, compiler, *headers = sys.argv[1:]
    listed = elf.listed()[library]
    exported, _ = elf.dynamic_symbols(os.path.join(folder, library))
    names = [symbol.name for symbol in listed]
    wrong = differences(library, [" ".join(symbol) for symbol in listed], [" ".join(symbol) for symbol in exported])
    wrong += differences(" and ".join(os.path.relpath(header, ROOT) for header in headers), names,
                         [name for header in headers for name in declared(compiler, header)])
    in_script = [f"{name} {node}" for node, found in scripted(script).items() for name in found]
    wrong += differences(os.path.relpath(script, ROOT), [f"{symbol.name} {symbol.node}" for symbol in listed], in_script)
    print("\n".join(wrong) or f"{library}: {len(listed)} functions")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
