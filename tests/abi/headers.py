#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: headers.py STANDARD FOLDER COMPILER...

Compiles each public header alone, once and twice over, as the first thing of a translation unit, with every compiler.
FOLDER holds <ovra/...> and <hwplat/...> as an installation does.
"""
import os
import shutil
import subprocess
import sys

FLAGS = ["-pedantic", "-Wall", "-Wextra", "-Wundef", "-Wshadow", "-Werror", "-fsyntax-only"]


def main():
    standard, folder = sys.argv[1:3]
    compilers = sys.argv[3:]
    missing = [name for name in compilers if not shutil.which(name)]
    headers = [f"{group}/{name}" for group in ("ovra", "hwplat")
               for name in sorted(os.listdir(os.path.join(folder, group))) if name.endswith(".h")]
    if missing or not compilers or not {"ovra/ovra.h", "ovra/uefi.h", "hwplat/devns.h"} <= set(headers):
        print(f"nothing to compile: compilers {compilers}, of which are missing {missing}, headers {headers}")
        return 1
    language = ["-x", "c++"] if "++" in standard else ["-x", "c", "-Wstrict-prototypes"]
    failures = 0
    for compiler in compilers:
        for header in headers:
            for times in (1, 2):
                run = subprocess.run([compiler, f"-std={standard}", *language, *FLAGS, f"-I{folder}", "-"],
                                     input=f"#include <{header}>\n" * times,
                                     capture_output=True, text=True, check=False)
                if run.returncode != 0:
                    failures += 1
                    print(f"{compiler} -std={standard}: <{header}> included {times} time(s)\n{run.stderr}")
    print(f"{standard}: {', '.join(headers)} with {', '.join(compilers)}: {failures} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
