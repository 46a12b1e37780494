#!/usr/bin/env python3
"""Fails for a message of src/encode that no case expects, for a keyword without its usual cases, and when there are
fewer kept_ cases than there are behaviours marked as kept.

usage: coverage.py ROOT
"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
LITERAL = r'"(?:[^"\\]|\\.)*"'
# A guard that nothing reaches: the count of arguments is taken from the same text, every row of the table has an
# encoder, and the C library reports no overflow for so few digits.
UNREACHABLE = {
    r"error processing too many arguments argc = %d\n",
    r"encoder for %s not available\n",
    r"unable to strtolu numeric part of EISAIDID: %s\n",
    r"can't convert Data1_str: %s %s\n",
    r"can't convert Data2_str\n",
    r"can't convert Data3_str\n",
    r"can't convert Data4_str\n",
    r"encode_arg_hexdump: strtoull failed\n",
}


def literals(text):
    """String literals, adjacent ones as one."""
    tokens = rf"""//[^\n]*|/\*.*?\*/|#include[^\n]*|'(?:[^'\\]|\\.)+'|(?P<text>{LITERAL}(?:\s*{LITERAL})*)"""
    for found in re.finditer(tokens, text, re.DOTALL):
        if found["text"]:
            yield "".join(part[1:-1] for part in re.findall(LITERAL, found["text"])).replace(r"\"", '"')


def messages(sources):
    """What looks like a message: several words, or a line end."""
    for source in sources:
        for text in literals(source.read_text()):
            if (" " in text.strip() or text.endswith(r"\n")) and text != "%s":
                yield text


def shape(message):
    """A regular expression for the message with whatever it shows."""
    parts = re.split(r"%(?:[a-z]*[dsux])", message)
    return re.compile(".*?".join(map(re.escape, parts)), re.DOTALL)


sources = sorted((root / "src/encode").glob("*.cpp"))
tables = sorted((root / "tests/data").glob("encode_*.tsv"))
tests = sorted((root / "tests/encode").glob("*.[ch]*")) + [root / "tests/osmap/epath_test.cpp"]
expected = "\n".join(table.read_text() for table in tables)
expected += "\n".join(text for test in tests for text in literals(test.read_text()))
names = {line.split("\t")[0] for table in tables for line in table.read_text().splitlines()}
names |= {name for test in tests for name in re.findall(r"TEST(?:_[FP])?\(\w+, (\w+)\)", test.read_text())}
findings = []

wanted = set(messages(sources))
if len(wanted) < 100:
    findings.append(f"only {len(wanted)} messages found: the sources were not understood")
for message in sorted(wanted - UNREACHABLE):
    if not shape(message).search(expected):
        findings.append(f"no case expects: {message}")
for message in sorted(UNREACHABLE - wanted):
    findings.append(f"no longer in the sources: {message}")

for line in (root / "tests/data/encode_keywords.tsv").read_text().splitlines():
    keyword, _, parameters = line.partition("\t")
    if keyword.startswith("#"):
        continue
    usual = ["minimal", "odd_case"]
    if parameters and parameters != "-":
        usual += ["all_named", "all_positional"]
    findings += [f"no case {keyword.lower()}_{case}" for case in usual if f"{keyword.lower()}_{case}" not in names]

marked = sum(len(re.findall(r"Kept:", source.read_text())) for source in sources)
kept = sum("kept_" in name for name in names)
if kept < marked:
    findings.append(f"{marked} behaviours are marked as kept, {kept} cases are named after them")

print("\n".join(findings) or f"{len(wanted)} messages, {marked} kept behaviours, {kept} cases of them")
sys.exit(bool(findings))
