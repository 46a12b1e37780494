#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Reads every #include below include/, src/, platform/ and tools/ and fails on one that points the wrong way.

usage: layers.py [ROOT]

Project headers are written from the root, in quotes ("src/rt/rt.h"); public ones as <ovra/ovra.h>. Prints one
line per finding; exit status 0 (none), 1 (findings), 2 (nothing to read).
"""
import os
import re
import sys
from typing import NamedTuple

C_HEADERS = """assert complex ctype errno fenv float inttypes iso646 limits locale math setjmp signal stdarg stdbool
    stddef stdint stdio stdlib string tgmath time wchar wctype""".split()
C = frozenset(f"{name}.h" for name in C_HEADERS)
ANY = None


class Layer(NamedTuple):
    may: tuple  # folders and files of the project, besides the folder itself
    public: tuple  # what of include/ovra
    system: frozenset  # which system headers; ANY: all
    because: str


WHOLE = ("log.h", "ovra.h", "uefi.h")
TYPES = ("uefi.h",)

LAYERS = {
    "include/ovra": Layer((), WHOLE, C, "any C or C++ program includes it and has nothing else of ours"),
    "src/base": Layer((), TYPES, ANY, "formats and notations as they are stored, for whoever reads or writes them"),
    "src/rt": Layer(("src/base", "platform/include/devns.h"), WHOLE, ANY,
                    "it knows handles, bytes and the driver, no paths"),
    "src/dpath": Layer(("src/rt", "src/base"), WHOLE, ANY,
                       "bytes and lists; what the folders left of it share sinks here"),
    "src/print": Layer(("src/dpath", "src/rt", "src/base"), WHOLE, ANY, "it reads records, never text syntax"),
    "src/osmap": Layer(("src/print", "src/dpath", "src/rt", "src/base", "platform/include"), WHOLE, ANY,
                       "decoding to devices prints nodes and builds path lists"),
    "src/encode": Layer(("src/osmap", "src/dpath", "src/rt", "src/base"), WHOLE, ANY,
                        "the text driver hands disk names and device tree paths to the mapping"),
    "src/boot": Layer(("src/encode", "src/osmap", "src/print", "src/dpath", "src/rt", "src/base"), WHOLE, ANY,
                      "it stands above every other folder of the core"),
    "platform/include": Layer((), TYPES, C | {"sys/types.h"},
                              "replacement platform libraries are built against it alone"),
    "platform/machine": Layer(("src/base",), TYPES, ANY, "the model of a folder, ignorant of the faces"),
    "platform/kvlist": Layer(("platform/include", "platform/machine", "src/base"), TYPES, ANY, "a face on the model"),
    "platform/hwtree": Layer(("platform/include", "platform/machine", "src/base"), TYPES, ANY, "a face on the model"),
    "platform/volset": Layer(("platform/include", "platform/machine", "src/base"), TYPES, ANY, "a face on the model"),
    "platform/devns": Layer(("platform/include", "platform/machine", "src/base"), TYPES, ANY, "a face on the model"),
    "tools/text": Layer(("src/base",), TYPES, ANY, "how things are written, for people and programs; it asks nobody"),
    "tools/machine": Layer(("tools/text", "platform/include", "src/base"), WHOLE, ANY,
                           "the machine as the command sees it, ignorant of verbs: calls go through the exported "
                           "interface, formats through the base layer"),
    "tools/paste": Layer(("tools/machine", "tools/text", "src/base"), TYPES, ANY,
                         "what other tools print; ovra's own texts are those of tools/text"),
    "tools/layout": Layer(("src/base",), (), ANY, "a folder from lines of text, for the command and for tests"),
    "tools/exchange": Layer(("tools/paste", "tools/machine", "tools/text", "src/base"), TYPES, ANY,
                            "the boot variables as a whole, as text and as a plan of writes"),
    "tools/command": Layer(("tools/paste", "tools/machine", "tools/text", "src/base"), TYPES, ANY,
                           "the command line: what a verb is, and what several take"),
    "tools/ovra": Layer(("tools/command", "tools/exchange", "tools/layout", "tools/paste", "tools/machine", "tools/text",
                         "platform/include", "src/base"), WHOLE, ANY, "the verbs"),
}

# Single files outside these folders that have a rule of their own.
FILES = {
    "tests/abi/consumer.c": Layer((), WHOLE, C, "it is what a program written elsewhere is"),
    "tests/abi/bootoptions.c": Layer((), WHOLE, C, "it is what a program written elsewhere is"),
}

# Installed, these stand in a folder of another name: only the bare name finds a neighbour in both places.
NEIGHBOURS_BY_BARE_NAME = ("platform/include",)

# Below src/: each of these brings the C++ run-time library with it.
NEEDS_RUNTIME = frozenset("""iostream istream ostream fstream sstream iomanip ios streambuf string vector deque list
    map set unordered_map unordered_set queue stack functional regex stdexcept exception locale thread mutex future
    condition_variable filesystem format any""".split())

READ = ("include", "src", "platform", "tools")
NO_SOURCE = re.compile(r"^\.|^CMakeLists\.txt$|\.(cmake|map|md)$")

TOKEN = re.compile(
    r"""(?P<comment>/\*.*?(?:\*/|\Z)|//[^\n]*)
      | (?:u8|[uUL])?R"(?P<mark>[^ ()\\\n]*)\(.*?\)(?P=mark)"
      | [A-Za-z_]\w*
      | \.?\d(?:'?[\w.])*
      | "(?:\\.|[^"\\\n])*"
      | '(?:\\.|[^'\\\n])*'""",
    re.DOTALL | re.VERBOSE)
DIRECTIVE = re.compile(r"\s*(?:\#|%:)\s*(?:include|include_next|import)\b\s*(?P<what>.*?)\s*$")
NAME = re.compile(r'"(?P<quoted>[^"]+)"$|<(?P<system>[^>]+)>$')


def blank(match):
    """A comment's place: a space and its line ends, which keeps the numbers of lines."""
    if match.group("comment") is None:
        return match.group()
    return " " + "\n" * match.group().count("\n")


def includes(text):
    """(line number, what follows #include) of each directive outside comments."""
    # A continued line keeps its number: its line ends move after it.
    text = re.sub(r"(?:[^\n]*\\\n)+[^\n]*",
                  lambda m: m.group().replace("\\\n", "") + "\n" * m.group().count("\\\n"), text)
    for number, line in enumerate(TOKEN.sub(blank, text).split("\n"), 1):
        found = DIRECTIVE.match(line)
        if found:
            yield number, found.group("what")


def covers(allowed, path):
    return any(path == entry or os.path.dirname(path) == entry for entry in allowed)


def wrong(root, folder, layer, what):
    """What is wrong with one include of a file in `folder`, or None."""
    name = NAME.match(what)
    if not name:
        return f"an include names its file, not {what or 'nothing'}"
    quoted, system = name.group("quoted"), name.group("system")
    path = quoted or system
    if path != os.path.normpath(path) or path.startswith(("/", "..")):
        return f"{what} is not written from the root"
    exists = os.path.isfile(os.path.join(root, path))

    if quoted:
        if folder in NEIGHBOURS_BY_BARE_NAME:
            if "/" in quoted:
                return f"{folder} includes its neighbours by bare name, not as {what}"
            quoted = f"{folder}/{quoted}"
            exists = os.path.isfile(os.path.join(root, quoted))
        if not exists:
            return f"{what} names no file from the root"
        if quoted.startswith("include/"):
            return f"{what} is written <{quoted.removeprefix('include/')}>"
        if os.path.dirname(quoted) != folder and not covers(layer.may, quoted):
            return f"{folder} may not include {quoted}"
        return None

    if system.startswith("ovra/"):
        if not os.path.isfile(os.path.join(root, "include", system)):
            return f"{what} is no public header"
        return None if system.removeprefix("ovra/") in layer.public else f"{folder} may not include {system}"
    platform = os.path.isfile(os.path.join(root, "platform/include", os.path.basename(system)))
    if exists or platform and (system.startswith("hwplat/") or "/" not in system):
        return f"{what} is a header of this project and stands in quotes, from the root"
    if layer.system is not ANY and system not in layer.system:
        return f"{folder} may not include {what}"
    if folder.startswith("src/") and system in NEEDS_RUNTIME:
        return f"{folder} may not include {what}: it needs the C++ run-time library"
    return None


def findings(root):
    """(findings, number of files read)"""
    result = []
    sources = []
    for top in READ:
        for base, folders, files in os.walk(os.path.join(root, top)):
            folders.sort()
            folder = os.path.relpath(base, root)
            read = [name for name in sorted(files) if not NO_SOURCE.search(name)]
            parent = any(known.startswith(folder + "/") for known in LAYERS)
            if folder not in LAYERS and (read or not parent):
                result.append(f"{folder}: no layer of scripts/layers.py")
                if not parent:
                    folders.clear()
                continue
            sources += [(f"{folder}/{name}", folder, LAYERS[folder]) for name in read]
    sources += [(path, path, layer) for path, layer in FILES.items() if os.path.exists(os.path.join(root, path))]
    for path, folder, layer in sources:
        with open(os.path.join(root, path), encoding="utf-8", errors="replace") as file:
            text = file.read()
        for line, what in includes(text):
            message = wrong(root, folder, layer, what)
            if message:
                result.append(f"{path}:{line}: {message}")
    return result, len(sources)


def main():
    if len(sys.argv) > 2:
        print(__doc__, file=sys.stderr)
        return 2
    default = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    root = sys.argv[1] if len(sys.argv) == 2 else default
    result, count = findings(root)
    for line in result:
        print(line)
    if not result and count == 0:
        print(f"{root}: no sources below {', '.join(READ)}", file=sys.stderr)
        return 2
    return 1 if result else 0


if __name__ == "__main__":
    sys.exit(main())
