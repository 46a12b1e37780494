#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: kept.py [ROOT]

Behaviour that looks wrong and must stay is marked where it is made, with the tests that hold it:
    Kept: <why> [kept_one_test, kept_other_tests_*]
Fails on a mark without an existing test, and on a test called kept_* that no mark names.
"""
import fnmatch
import pathlib
import re
import sys

MARKED = ("include", "src", "platform", "tools")
COMMENT = re.compile(r'"(?:\\.|[^"\\\n])*"|(?P<block>/\*.*?\*/)|(?P<lines>//[^\n]*(?:\n[ \t]*//[^\n]*)*)', re.DOTALL)
MARK = re.compile(r"\bKept\b(?P<why>(?:(?!\bKept\b).)*?)(?:\[(?P<tests>kept_[^\]]*)\]|(?=\bKept\b)|$)", re.DOTALL)
# A case in GoogleTest, a row of a table in C++, a case for each row of one, a row of a table as text.
TEST = {
    ".cpp": re.compile(r'\bTEST(?:_[FP])?\(\s*\w+,\s*(kept_\w+)\)|\{\s*"(kept_\w+)"\s*,|'
                       r'\bregister_rows\("\w*?(kept_\w+)"'),
    ".tsv": re.compile(r"^(kept_\w+)\t", re.MULTILINE),
}


def marks(root):
    """(file:line, names of tests) of each mark; no names where they are missing."""
    for folder in MARKED:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in (".h", ".c", ".cpp", ".def"):
                continue
            text = path.read_text()
            for comment in COMMENT.finditer(text):
                words = comment["block"] or comment["lines"] or ""
                for mark in MARK.finditer(words):
                    line = text.count("\n", 0, comment.start() + mark.start()) + 1
                    names = re.findall(r"[\w*]+", re.sub(r"\s*\n\s*(//|\*)?\s*", " ", mark["tests"] or ""))
                    named = mark["why"].startswith(": ") and names
                    yield f"{path.relative_to(root)}:{line}", names if named else []


def tests(root):
    """The names of all tests called kept_*."""
    for path in sorted((root / "tests").rglob("*")):
        if path.suffix in TEST:
            for found in TEST[path.suffix].finditer(path.read_text()):
                yield next(filter(None, found.groups()))


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent)
    existing = set(tests(root))
    findings = []
    named = set()
    count = 0
    for place, names in marks(root):
        count += 1
        if not names:
            findings.append(f"{place}: a mark reads Kept: <why> [kept_name]")
        for name in names:
            found = set(fnmatch.filter(existing, name))
            if not found:
                findings.append(f"{place}: there is no test {name}")
            named |= found
    findings += [f"no mark names the test {name}" for name in sorted(existing - named)]
    if count == 0:
        findings.append(f"{root}: no mark below {', '.join(MARKED)}")
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
