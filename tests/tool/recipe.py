#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: recipe.py follow HACKING_MD VERBS_DEF FOLDER
       recipe.py try TOOL MACHINE

Follows the recipe of docs/hacking.md for a verb: writes its file, and VERBS_DEF with its line, into FOLDER. Tries the
command that was built with them on a machine.
"""
import os
import re
import subprocess
import sys
import tarfile
import tempfile


def follow(recipe, verbs, folder):
    with open(recipe, encoding="utf-8") as file:
        text = file.read()
    name, code, line = re.search(r"`tools/ovra/(\w+\.cpp)`:\n\n```cpp\n(.*?)```\n.*?`tools/ovra/verbs\.def`.*?\n\n"
                                 r"```\n(VERB\(\w+\)\n)```\n", text, re.DOTALL).groups()
    with open(verbs, encoding="utf-8") as file:
        line = file.read() + line
    os.makedirs(folder, exist_ok=True)
    for path, content in ((name, code), ("verbs.def", line)):
        with open(os.path.join(folder, path), "w", encoding="utf-8") as file:
            file.write(content)
    return 0


def attempt(tool, machine):
    def run(*words):
        done = subprocess.run([tool, *words], capture_output=True, text=True, check=False)
        return done.returncode, done.stdout, done.stderr

    failed = False
    with tempfile.TemporaryDirectory() as root:
        with tarfile.open(machine) as archive:
            archive.extractall(root)
        for words, wanted in (
                (("--root", root, "exists", "Boot0000"), (0, "yes\n", "")),
                (("--root", root, "exists", "boot99"), (0, "no\n", "")),
                (("--root", root, "exists", "0", "--json"), (0, '{\n  "format": 1,\n  "exists": true,\n'
                                                                '  "warnings": []\n}\n', "")),
                (("exists",), (2, "", "ovra: option is required\n"
                               "  'ovra --help' and 'ovra VERB --help' show what can be given.\n"))):
            got = run(*words)
            if got != wanted:
                print(f"{' '.join(words)}: expected {wanted}, got {got}")
                failed = True
    status, text, _ = run("--help")
    if status != 0 or not re.search(r"^  reset .*\n  exists +whether a boot option exists$", text, re.MULTILINE):
        print(f"--help does not list the verb after the others:\n{text}")
        failed = True
    return 1 if failed else 0


def main():
    actions = {"follow": follow, "try": attempt}
    return actions[sys.argv[1]](*sys.argv[2:])


if __name__ == "__main__":
    sys.exit(main())
