# SPDX-License-Identifier: MIT
"""What readelf and nm say about a library, as Python values."""
import os
import re
import subprocess
from collections import namedtuple

Symbol = namedtuple("Symbol", "name node type")


def output(*command):
    """Standard output of a command that must succeed, in the C locale."""
    run = subprocess.run(command, capture_output=True, text=True, check=False, env={**os.environ, "LC_ALL": "C"})
    if run.returncode != 0:
        raise AssertionError(f"{' '.join(command)}: exit status {run.returncode}\n{run.stdout}{run.stderr}")
    return run.stdout


def notes(path):
    """What readelf says of the notes of a file. It ends with 1 when it does not know the kind of one."""
    run = subprocess.run(("readelf", "-nW", path), capture_output=True, text=True, check=False,
                         env={**os.environ, "LC_ALL": "C"})
    if run.returncode not in (0, 1) or re.sub(r"(?m)^\s*$", "", run.stderr).strip():
        raise AssertionError(f"{path}: exit status {run.returncode}\n{run.stderr}")
    return run.stdout


def dynamic_symbols(library):
    """(exported symbols, names of the undefined ones)"""
    exported, undefined = set(), set()
    for line in output("readelf", "--dyn-syms", "-W", library).splitlines():
        fields = line.split()
        if len(fields) < 8 or not re.fullmatch(r"\d+:", fields[0]):
            continue
        kind, binding, _, place, name = fields[3:8]
        name, _, node = name.replace("@@", "@").partition("@")
        if place == "UND":
            undefined.add(name)
        elif binding != "LOCAL" and not (kind == "OBJECT" and place == "ABS"):  # ABS: the version node itself
            exported.add(Symbol(name, node or "-", kind))
    return exported, undefined


def dynamic_entries(library):
    """(tag, value) of each entry of the dynamic section, such as ("NEEDED", "libc.so.6")."""
    entries = []
    for line in output("readelf", "-d", "-W", library).splitlines():
        found = re.match(r"\s*0x[0-9a-f]+\s+\((\w+)\)\s+(.*)", line)
        if found:
            value = re.search(r"\[(.*)\]", found.group(2))
            entries.append((found.group(1), value.group(1) if value else found.group(2)))
    return entries


def needed(library):
    return [value for tag, value in dynamic_entries(library) if tag == "NEEDED"]


def undefined_in(archive):
    """The names that the objects of an archive refer to, those that other objects of it define included."""
    return set(re.findall(r"^\s+[Uw] (\S+)$", output("nm", "-u", archive), re.MULTILINE))


def listed():
    """tests/abi/symbols.txt: {library: {Symbol}}"""
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "symbols.txt")
    libraries = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            if line.startswith("#") or not line.strip():
                continue
            library, node, name = line.split()
            symbols = libraries.setdefault(library, set())
            symbol = Symbol(name, node, "FUNC")
            assert symbol not in symbols, f"{path}: {name} stands there twice"
            symbols.add(symbol)
    return libraries
