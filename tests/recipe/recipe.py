#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: recipe.py ROOT WORK CXX [CMAKE_ARGUMENT...]

Follows docs/hacking.md in a copy of the tree: ufs.patch adds a node kind in the places that the recipe names, and in no
other. Builds the core and the command, and encodes and prints the new kind as the rows of the patch say.
"""
import pathlib
import re
import shutil
import subprocess
import sys

root, work = map(pathlib.Path, sys.argv[1:3])
cxx, *options = sys.argv[3:]
here = pathlib.Path(__file__).parent
patch = here / "ufs.patch"
copy, build, program = work / "tree", work / "build", work / "both_ways"
END_ENTIRE = "7f ff 04 00"


def run(*command, **how):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **how)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}: exit status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def named_places():
    """A regular expression for each place that the recipe names: <family> is any name."""
    text = (root / "docs/hacking.md").read_text()
    recipe = re.search(r"^## To add a node kind.*?(?=^## )", text, re.DOTALL | re.MULTILINE)[0]
    paths = set(re.findall(r"`((?:include|src|tools|tests)/[\w/.<>]+\.\w+)`", recipe))
    return {path: re.compile(re.sub(r"<\w+>", r"\\w+", re.escape(path))) for path in paths}


def check_places():
    touched = set(re.findall(r"^\+\+\+ b/(.*)$", patch.read_text(), re.MULTILINE))
    places = named_places()
    for path in touched:
        if not any(place.fullmatch(path) for place in places.values()):
            sys.exit(f"ufs.patch touches {path}, which the recipe does not name")
    for path, place in places.items():
        if not any(place.fullmatch(name) for name in touched):
            sys.exit(f"the recipe names {path}, which ufs.patch does not touch")


def make_copy():
    """The files keep their times, and unchanged ones stay: what was built before is not built again."""
    shutil.rmtree(copy, ignore_errors=True)
    for name in ("CMakeLists.txt", "cmake", "include", "platform", "src", "tools", "tests/data"):
        place = copy / name
        place.parent.mkdir(parents=True, exist_ok=True)
        if (root / name).is_dir():
            shutil.copytree(root / name, place)
        else:
            shutil.copy2(root / name, place)
    # Outside of any repository, whose paths would not be those of the patch.
    run("git", "apply", "--whitespace=nowarn", "-C1", patch.resolve(), cwd=copy,
        env={"PATH": "/usr/bin:/bin", "GIT_CEILING_DIRECTORIES": str(work.resolve())})


def added_rows(table):
    """The rows that the patch adds to a table below tests/data."""
    part = re.search(rf"^\+\+\+ b/tests/data/{table}\n(.*?)(?=^--- |\Z)", patch.read_text(), re.DOTALL | re.MULTILINE)
    return [line[1:].split("\t") for line in part[1].splitlines() if line.startswith("+")]


check_places()
make_copy()
# Without optimisation, which takes less time, the core calls the C++ run-time library.
run("cmake", "-S", copy, "-B", build, "-DOVRA_TESTS=OFF", "-DOVRA_WERROR=ON", "-DOVRA_HARDENING=OFF",
    "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_CXX_STANDARD_LIBRARIES=-lstdc++",
    f"-DCMAKE_CXX_COMPILER={cxx}", *options)
run("cmake", "--build", build, "--parallel", "2", "--target", "ovra_static", "ovra_tool")
run(cxx, "-std=c++20", f"-I{copy}", f"-I{copy}/include", here / "both_ways.cpp", build / "lib/libovra.a",
    *(build / f"lib/lib{name}.so" for name in ("volset", "hwtree", "kvlist", "devns")), f"-Wl,-rpath,{build}/lib", "-o", program)

(_, text, node), = added_rows("encode_disk.tsv")
(again, printed, *_), = added_rows("roundtrip.tsv")
expected = f"{' '.join(node.split())} {END_ENTIRE}\n{printed}\n"
for given in (text, again, printed):
    got = run(program, given)
    if got != expected:
        sys.exit(f"{given}: expected\n{expected}got\n{got}")
    got = run(build / "bin/ovra", "path", "encode", given)
    digits = expected.splitlines()[0].replace(" ", "") + "\n"
    if got != digits:
        sys.exit(f"ovra path encode '{given}': expected\n{digits}got\n{got}")
