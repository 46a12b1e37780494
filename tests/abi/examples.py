#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: examples.py INCLUDE_FOLDER[:INCLUDE_FOLDER...] HEADER...

The examples in the comments of the public headers compile, each as the body of a function of its own. An example is
what stands five columns in, after an empty line of a comment; "..." stands for the reader's own statement.
"""
import re
import subprocess
import sys

EXAMPLE = re.compile(r"(?<=\n \*\n)(?: \*     .*\n(?: \*\n(?= \*     ))?)+")
# What an example takes for given stands before it; where it declares a name itself, its own counts.
GIVEN = """#include <stdio.h>
#include <stdlib.h>
#include <ovra/ovra.h>
#include <ovra/log.h>
extern ovra_hdl_t hdl;
extern ovra_epath_t packed;
extern int size;
extern char *text;
#if __has_include(<devns.h>)
#include <fcntl.h>
#include <inttypes.h>
#include <devns.h>
#include <hwtree.h>
#include <kvlist.h>
#include <volset.h>
extern int err;
extern ht_node_t root;
extern vs_descriptor_t drive, *drives;
#else
#include <err.h>
#endif
"""
# A function that an example defines stands before the statements.
FUNCTION = re.compile(r"^static .*\n\{\n(?:.*\n)*?\}\n", re.MULTILINE)


def unit(example):
    """The example as a source file."""
    code = re.sub(r"^ \*(?:     )?", "", example, flags=re.MULTILINE).replace("...", ";")
    functions = "".join(FUNCTION.findall(code))
    return f"{GIVEN}{functions}int example(void);\nint example(void)\n{{\n{FUNCTION.sub('', code)}return 0;\n}}\n"


def main():
    folders, *headers = sys.argv[1:]
    failures = 0
    for header in headers:
        with open(header, encoding="utf-8") as source:
            examples = EXAMPLE.findall(source.read())
        if not examples:
            failures += 1
            print(f"{header} shows no example")
        for example in examples:
            run = subprocess.run(["gcc", "-x", "c", "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                                  "-Wno-empty-body", "-Wno-unused-parameter", "-fsyntax-only", *(f"-I{folder}" for folder in folders.split(":")), "-"],
                                 input=unit(example), capture_output=True, text=True, check=False)
            if run.returncode != 0:
                failures += 1
                print(f"{header}:\n{unit(example)}\n{run.stderr}")
        print(f"{header}: {len(examples)} examples")
    return 1 if failures else 0


sys.exit(main())
