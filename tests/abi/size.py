#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: size.py INCLUDE_FOLDER COMPILER...

size.cpp must compile, and must not once a size, an offset or the packing in it is wrong: for that reason alone.
"""
import os
import shutil
import subprocess
import sys

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "size.cpp")
LANGUAGES = {"c++": "-std=c++11", "c": "-std=c99"}
WRONG = ["SIZE=8", "OFFSET=2", "TAIL=5", "PACKING="]
REASONS = ("static assertion failed", "static_assert failed", "is negative", "with a negative size")


def main():
    include = sys.argv[1]
    compilers = sys.argv[2:]
    wrong = [f"there is no {name}: 'scripts/install-packages check' installs it" for name in compilers
             if not shutil.which(name)]
    for compiler in filter(shutil.which, compilers):
        for language, standard in LANGUAGES.items():
            command = [compiler, "-x", language, standard, "-pedantic", "-Wall", "-Wextra", "-Werror", f"-I{include}",
                       "-fsyntax-only", SOURCE]
            run = subprocess.run(command, capture_output=True, text=True, check=False)
            if run.returncode != 0:
                wrong.append(f"{compiler}, {language}: does not compile as it is\n{run.stderr}")
            for change in WRONG:
                run = subprocess.run([*command, f"-D{change}"], capture_output=True, text=True, check=False,
                                     env={**os.environ, "LC_ALL": "C"})
                errors = [line for line in run.stderr.splitlines() if "error:" in line]
                if run.returncode == 0:
                    wrong.append(f"{compiler}, {language}: compiles with {change}")
                elif not all(any(reason in line for reason in REASONS) for line in errors) or not errors:
                    wrong.append(f"{compiler}, {language}: {change} is refused for another reason\n{run.stderr}")
    print("\n".join(wrong) or f"refused by {', '.join(compilers)}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
