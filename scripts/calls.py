#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Reads the sources below src/ and platform/ and fails on a name of the C or C++ library whose answer depends on what
the program around the library has set: its locale, or an environment that a set-user-ID program must not believe.

usage: calls.py [ROOT]

Prints one line per finding; exit status 0 (none), 1 (findings), 2 (nothing to read).
"""
import os
import re
import sys

import layers

LOCALE = "depends on the caller's locale"
TEXT = f"{LOCALE}: src/base/ascii.h"
NUMBER = f"{LOCALE}: src/base/number.h or std::from_chars"
ELSE = LOCALE

REASONS = {
    TEXT: """strcasecmp strncasecmp strcasestr strcoll strxfrm wcscasecmp wcsncasecmp wcscoll wcsxfrm tolower toupper
        towlower towupper isalnum isalpha isblank iscntrl isdigit isgraph islower isprint ispunct isspace isupper
        isxdigit iswalnum iswalpha iswblank iswcntrl iswdigit iswgraph iswlower iswprint iswpunct iswspace iswupper
        iswxdigit iswctype fnmatch""",
    NUMBER: """strtol strtoll strtoul strtoull strtoimax strtoumax strtoq strtouq strtod strtof strtold wcstol wcstoll
        wcstoul wcstoull wcstod wcstof wcstold atoi atol atoll atof scanf fscanf sscanf vscanf vfscanf vsscanf swscanf
        stoi stol stoll stoul stoull stod stof stold""",
    ELSE: """locale imbue localeconv nl_langinfo stringstream istringstream ostringstream wstringstream regex
        mbtowc wctomb mbstowcs wcstombs mbrtowc wcrtomb mbsrtowcs wcsrtombs mblen mbrlen btowc wctob strftime wcsftime
        strptime""",
    "is the program's to call": "setlocale uselocale newlocale setenv unsetenv putenv clearenv",
    "is believed in a set-user-ID program: secure_getenv": "getenv",
}
REASON = {name: reason for reason, names in REASONS.items() for name in names.split()}
READ = ("src", "platform")
NAME = re.compile(r"[A-Za-z_]\w*")


def names(text):
    """(line number, name) of each identifier outside comments and literals."""
    text = layers.TOKEN.sub(layers.blank, text)
    for token in layers.TOKEN.finditer(text):
        if NAME.fullmatch(token.group()):
            yield text.count("\n", 0, token.start()) + 1, token.group()


def main():
    if len(sys.argv) > 2:
        print(__doc__, file=sys.stderr)
        return 2
    root = sys.argv[1] if len(sys.argv) == 2 else os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    count = 0
    found = False
    for top in READ:
        for base, folders, files in os.walk(os.path.join(root, top)):
            folders.sort()
            for name in sorted(files):
                if layers.NO_SOURCE.search(name):
                    continue
                count += 1
                path = os.path.join(base, name)
                with open(path, encoding="utf-8", errors="replace") as file:
                    text = file.read()
                for line, word in names(text):
                    if word in REASON:
                        found = True
                        print(f"{os.path.relpath(path, root)}:{line}: {word} {REASON[word]}")
    if count == 0:
        print(f"{root}: no sources below {', '.join(READ)}", file=sys.stderr)
        return 2
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
