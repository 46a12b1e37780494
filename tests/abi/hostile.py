#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: hostile.py FOLDER

The public headers where programs really include them: inside extern "C", in C++11 with all warnings on, in C11 in
pedantic mode, and before and behind <efivar.h>, which has some of the same names.
"""
import itertools
import shutil
import subprocess
import sys

HEADERS = ("ovra/ovra.h", "ovra/uefi.h", "ovra/log.h")
EFIVAR = "/usr/include/efivar"
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only"]
LANGUAGES = {"c++": (["-std=c++11"], ("g++", "clang++")),
             "c": (["-std=c11", "-pedantic", "-Wstrict-prototypes"], ("gcc", "clang"))}
# The names are there, whoever had them first, with the values that the firmware gives them.
USES = """
typedef char the_values_are_right[(EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS |
    EFI_VARIABLE_RUNTIME_ACCESS | EFI_VARIABLE_APPEND_WRITE) == 0x47 ? 1 : -1];
ovra_hdl_t make_a_handle(EFI_GUID *guid);
"""


def wrapped(header):
    return f'extern "C" {{\n#include <{header}>\n}}\n'


def plain(header):
    return f"#include <{header}>\n"


def texts(language):
    """(what it is, source)"""
    forms = [plain, wrapped] if language == "c++" else [plain]
    for form in forms:
        yield f"{form.__name__} alone", form(HEADERS[0]) + USES
        for header in HEADERS:
            for order in itertools.permutations((header, "efivar.h")):
                rest = "" if header == HEADERS[0] else form(HEADERS[0])
                yield f"{form.__name__} {' then '.join(order)}", "".join(map(form, order)) + rest + USES


def main():
    (folder,) = sys.argv[1:]
    missing = [name for _, compilers in LANGUAGES.values() for name in compilers if not shutil.which(name)]
    if missing:  # scripts/install-packages installs them all
        print(f"no {', '.join(missing)}: 'scripts/install-packages check' installs them")
        return 1
    failures = 0
    count = 0
    for language, (flags, compilers) in LANGUAGES.items():
        for compiler in compilers:
            for what, source in texts(language):
                # Its own warnings are not ours, but a clash of ours with it is: both are looked into, without -isystem.
                own = ["-Wno-variadic-macros", "-Wno-gnu-zero-variadic-macro-arguments"] if "efivar" in what else []
                own = own if "clang" in compiler else own[:1]
                run = subprocess.run([compiler, "-x", language, *flags, *WARNINGS, *own, f"-I{folder}", f"-I{EFIVAR}",
                                      "-"], input=source, capture_output=True, text=True, check=False)
                count += 1
                if run.returncode != 0:
                    failures += 1
                    print(f"{compiler} {' '.join(flags)}: {what}\n{run.stderr}")
    print(f"{count} sources, {failures} refused")
    return 1 if failures or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
