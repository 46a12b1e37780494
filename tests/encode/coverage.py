#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Fails for a message of src/encode that no case expects, and for a keyword without its usual cases.

usage: coverage.py ROOT
"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
LITERAL = r'"(?:[^"\\]|\\.)*"'
# A guard that nothing reaches: the count of arguments is taken from the same text, every row of the table has an
# encoder, so few digits do not overflow, and no path of a test is two gigabytes long.
UNREACHABLE = {
    r"error processing too many arguments argc = %d\n",
    r"encoder for %.*s not available\n",
    r"unable to strtolu numeric part of EISAIDID: %s\n",
    r"can't convert Data1_str: %s %s\n",
    r"can't convert Data2_str\n",
    r"can't convert Data3_str\n",
    r"can't convert Data4_str\n",
    r"encode_arg_hexdump: strtoull failed\n",
    r"unable to pack dpath_list\n",
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


def swept(sources):
    """What encoders of keywords that are not in the list say without memory: a sweep over the golden rows makes them
    say it."""
    listed = {line.split("\t")[0] for line in (root / "tests/data/encode_keywords.tsv").read_text().splitlines()}
    rows = re.findall(r'^KEYWORD\("(\w+)", (\w+),', (root / "src/encode/keywords.def").read_text(), re.MULTILINE)
    text = "\n".join(source.read_text() for source in sources)
    bodies = (re.search(rf"^int {encoder}\(.*?^}}", text, re.DOTALL | re.MULTILINE)
              for keyword, encoder in rows if keyword not in listed)
    return {message for body in bodies if body for message in literals(body[0]) if message.startswith("unable to allocate")}


def shape(message):
    """A regular expression for the message with whatever it shows."""
    parts = re.split(r"%(?:\.\*|[a-z]*)[dsux]", message)
    return re.compile(".*?".join(map(re.escape, parts)), re.DOTALL)


sources = sorted((root / "src/encode").glob("*.cpp"))
tables = sorted((root / "tests/data").glob("encode_*.tsv"))
tests = sorted((root / "tests/encode").glob("*.[ch]*")) + [root / "tests/osmap/epath_test.cpp"]
expected = "\n".join(table.read_text() for table in tables)
expected += "\n".join(text for test in tests for text in literals(test.read_text()))
findings = []

wanted = set(messages(sources))
if len(wanted) < 100:
    findings.append(f"only {len(wanted)} messages found: the sources were not understood")
for message in sorted(wanted - UNREACHABLE - swept(sources)):
    if not shape(message).search(expected):
        findings.append(f"no case expects: {message}")
for message in sorted(UNREACHABLE - wanted):
    findings.append(f"no longer in the sources: {message}")



def wrong_usual_case(keyword, parameters, case, rows):
    """What a keyword's rows of a usual case lack, together when one cannot give every parameter; nothing if all is
    well."""
    given = [re.fullmatch(r"([^(]*)\((.*)\)", row, re.DOTALL) for row in rows]
    if not given or not all(given):
        return "is missing"
    if {call[1].lower() for call in given} != {keyword.lower()}:
        return "is of another keyword"
    fields = [call[2].split(",") if call[2] else [] for call in given]
    if case == "all_positional":
        short = max(map(len, fields)) != len(parameters) or any("=" in field for call in fields for field in call)
        return f"has not {len(parameters)} fields" if short else ""
    names = [field.partition("=")[0] for call in fields for field in call if "=" in field]
    if case in ("all_named", "odd_case") and sorted(set(map(str.lower, names))) != sorted(map(str.lower, parameters)):
        return "does not name every parameter"
    if case == "odd_case" and (keyword in {call[1] for call in given} or set(names) & set(parameters)):
        return "is in the usual case"
    return ""


texts = {row[0].removeprefix("kept_"): row[1] for table in tables
         for row in (line.split("\t") for line in table.read_text().splitlines()) if len(row) > 2}
keywords = [line.split("\t") for line in (root / "tests/data/encode_keywords.tsv").read_text().splitlines()
            if not line.startswith("#")]
for keyword, *parameters in keywords:
    parameters = parameters[0].split() if parameters else []
    usual = ["minimal", "odd_case"]
    if parameters and parameters != ["-"]:
        usual += ["all_named", "all_positional"]
    for case in usual:
        name = f"{keyword.lower()}_{case}"
        rows = [text for row, text in texts.items() if row == name or row.startswith(name + "_")]
        wrong = wrong_usual_case(keyword, [one for one in parameters if one != "-"], case, rows)
        if wrong:
            findings.append(f"the case {name} {wrong}")

print("\n".join(findings) or f"{len(wanted)} messages, {len(keywords)} keywords")
sys.exit(bool(findings))
