# SPDX-License-Identifier: MIT
"""The examples of README.md, as they stand there."""
import os
import re

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def blocks(heading, language):
    """The texts of the blocks of a language below a heading of the second level."""
    with open(os.path.join(ROOT, "README.md"), encoding="utf-8") as file:
        section = re.search(rf"^## {re.escape(heading)}\n(.*?)(?=^## |\Z)", file.read(), re.MULTILINE | re.DOTALL)
    assert section, f"README.md has no section {heading!r}"
    found = re.findall(rf"^```{re.escape(language)}\n(.*?)^```$", section.group(1), re.MULTILINE | re.DOTALL)
    assert found, f"README.md has nothing in {language} below {heading!r}"
    return found


def commands(heading, position=0):
    """The lines that one types, of a console block, as a shell script that ends at the first failure."""
    lines = [line[2:] for line in blocks(heading, "console")[position].splitlines() if line.startswith("$ ")]
    assert lines, f"README.md has no lines to type below {heading!r}"
    return "set -e\n" + "\n".join(lines) + "\n"


def build_lines():
    """The lines that install the packages and build, and those that install."""
    lines = commands("Building and installing").splitlines(keepends=True)
    first = next(number for number, line in enumerate(lines) if "--install" in line)
    return "".join(lines[:first]), "set -e\n" + "".join(lines[first:])


def write_examples(folder):
    """The two programs and their projects, each in a folder: c/list.c, c++/list.cpp with c++/CMakeLists.txt."""
    (c_program,), (project,), (cxx_program,) = (blocks("From C", "c"), blocks("From C++ with CMake", "cmake"),
                                                blocks("From C++ with CMake", "cpp"))
    for name, text in (("c/list.c", c_program), ("c++/CMakeLists.txt", project), ("c++/list.cpp", cxx_program)):
        os.makedirs(os.path.dirname(os.path.join(folder, name)), exist_ok=True)
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            file.write(text)
