#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: hardening.py BUILD_FOLDER COMPILER built|installed PREFIX|flags

"built" and "installed" look at the libraries and the command of the build or of PREFIX: what they have against mistakes
that attackers use. "flags" builds with the flags of distributions, which must neither clash with ours nor lose to them.
"""
import json
import os
import platform
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

import elf

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
BUILD, COMPILER, WHAT = sys.argv[1:4]
PREFIX = sys.argv[4] if WHAT == "installed" else BUILD
X86 = platform.machine() == "x86_64"
FOLDERS = ("rt", "dpath", "print", "osmap", "encode", "boot")  # of the core
# libkvlist has no array on the stack and formats nothing: there is no call that could be a checked one.
WITHOUT_ARRAYS = {"libkvlist.so.1"}


def accepts(flag):
    return subprocess.run([COMPILER, "-Werror", flag, "-fsyntax-only", "-x", "c", os.devnull],
                          capture_output=True, check=False).returncode == 0


def properties(path):
    """The processor features that a file is marked for; of an archive, those of each member."""
    text = elf.notes(path)
    members = re.split(r"^File: ", text, flags=re.MULTILINE)
    members = members[1:] if len(members) > 1 else members
    return [set(re.findall(r"\b(IBT|SHSTK)\b", " ".join(re.findall(r"x86 feature: (.*)", member)))) for member in members]


def commands(build):
    """(command line, the file it makes) for each file that a build compiles."""
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        lines = [entry["command"] for entry in json.load(file)]
    return [(line, re.search(r" -o (\S+)", line).group(1)) for line in lines]


class Hardened(unittest.TestCase):
    def files(self):
        lib, = {found for found, _, names in os.walk(os.path.join(PREFIX, "lib")) if "libovra.so.1" in names}
        libraries = sorted(elf.listed())
        self.assertEqual(len(libraries), 5)
        return lib, {name: os.path.join(lib, name) for name in libraries} | {"ovra": os.path.join(PREFIX, "bin", "ovra")}

    def test_tables_are_read_only_once_a_file_is_loaded(self):
        for name, path in self.files()[1].items():
            with self.subTest(name):
                self.assertIn("GNU_RELRO", elf.output("readelf", "-lW", path))
                entries = dict(entry for entry in elf.dynamic_entries(path) if entry[0] != "NEEDED")
                self.assertIn("BIND_NOW", entries.get("FLAGS", ""))
                self.assertIn("NOW", entries.get("FLAGS_1", "").split())
                self.assertNotIn("TEXTREL", entries)

    def test_code_is_loaded_anywhere_and_data_is_no_code(self):
        for name, path in self.files()[1].items():
            with self.subTest(name):
                self.assertRegex(elf.output("readelf", "-hW", path), r"Type:\s+DYN")
                if name == "ovra":
                    self.assertIn("PIE", dict(elf.dynamic_entries(path))["FLAGS_1"].split())
                segments = re.findall(r"^\s+(LOAD|GNU_STACK)(?:\s+0x[0-9a-f]+){5} ([R ][W ][E ])",
                                      elf.output("readelf", "-lW", path), re.MULTILINE)
                self.assertEqual({kind for kind, _ in segments}, {"LOAD", "GNU_STACK"})
                self.assertEqual([found for found in segments if "W" in found[1] and "E" in found[1]], [])

    def test_stack_and_sizes_are_looked_at(self):
        for name, path in self.files()[1].items():
            if name in WITHOUT_ARRAYS:
                continue
            with self.subTest(name):
                _, undefined = elf.dynamic_symbols(path)
                self.assertIn("__stack_chk_fail", undefined)
                self.assertNotEqual({found for found in undefined if re.fullmatch(r"__\w+_chk", found)}, set())

    @unittest.skipUnless(X86 and accepts("-fcf-protection"), "neither shadow stacks nor branch tracking here")
    def test_files_are_marked_for_control_flow_protection(self):
        lib, files = self.files()
        for name, path in files.items():
            with self.subTest(name):
                # A program is entered through the start files of the C library, which not every system marks.
                self.assertLessEqual({"SHSTK"} if name == "ovra" else {"IBT", "SHSTK"}, *properties(path))
        members = properties(os.path.join(lib, "libovra.a"))
        self.assertGreaterEqual(len(members), 1 if WHAT == "installed" else len(FOLDERS))
        self.assertEqual([found for found in members if found != {"IBT", "SHSTK"}], [])

    @unittest.skipUnless(X86 and accepts("-fcf-protection"), "no branch tracking here")
    def test_a_library_marked_for_branch_tracking_is_entered_at_marks(self):
        for name, path in self.files()[1].items():
            if name == "ovra":
                continue
            with self.subTest(name):
                code = elf.output("objdump", "-d", "--no-show-raw-insn", path)
                functions = dict(re.findall(r"^[0-9a-f]+ <([^>]+)>:\n.*?\t(\w+)", code, re.MULTILINE))
                exported = {symbol.name for symbol in elf.dynamic_symbols(path)[0]}
                self.assertNotEqual(exported, set())
                self.assertEqual({found: functions.get(found) for found in exported}, dict.fromkeys(exported, "endbr64"))
                # What the dynamic linker would call in the start files.
                self.assertEqual({tag for tag, _ in elf.dynamic_entries(path)} & {"INIT", "FINI"}, set())

    @unittest.skipIf(WHAT == "installed", "only the build knows how its files were compiled")
    def test_every_source_is_compiled_so(self):
        flags = [flag for flag in ("-fstack-protector-strong", "-fstack-clash-protection", "-fcf-protection")
                 if accepts(flag)]
        self.assertIn("-fstack-protector-strong", flags)
        product = {f"core_{folder}" for folder in FOLDERS} | {
            "machine", "kvlist", "hwtree", "volset", "devns", "ovra_machine", "ovra_tool"}
        found = [(made.group(1), command) for command, made in
                 ((command, re.search(r"(?:^|/)CMakeFiles/(\w+)\.dir/", made)) for command, made in commands(BUILD))
                 if made and made.group(1) in product]
        self.assertEqual({target for target, _ in found}, product)
        for _, command in found:
            self.assertEqual([flag for flag in flags if flag not in command.split()], [], command)
            self.assertIn("fortify.h", command)


class Flags(unittest.TestCase):
    """Two files are built: a library in C++, and an object with calls of the printf family."""

    TEST = "tests/fakes/CMakeFiles/fakes.dir/disks.cpp.o"
    OBJECT = "src/CMakeFiles/core_rt.dir/rt/diag.cpp.o"

    def build(self, flags, linker="", build_type="None", tests=False):
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        self.work = work.name
        kept = {name: value for name, value in os.environ.items() if not name.startswith(("CFLAGS", "CXXFLAGS", "LDFLAGS"))}
        environment = {**kept, "CFLAGS": flags, "CXXFLAGS": flags, "LDFLAGS": linker, "LC_ALL": "C"}
        with_tests = ["-DOVRA_TESTS=ON", "-DOVRA_TEST_FOLDERS="] if tests else ["-DOVRA_TESTS=OFF"]
        for command in (["cmake", "-S", ROOT, "-B", work.name, "-G", "Ninja", f"-DCMAKE_BUILD_TYPE={build_type}",
                         "-DOVRA_WERROR=ON", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DCMAKE_UNITY_BUILD=OFF", *with_tests],
                        ["cmake", "--build", work.name, "--target", "kvlist", self.OBJECT]):
            run = subprocess.run(command, env=environment, capture_output=True, text=True, check=False)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
            self.assertNotIn("warning", (run.stdout + run.stderr).lower())
        return os.path.join(work.name, "lib", "libkvlist.so.1"), os.path.join(work.name, self.OBJECT)

    def undefined(self, path):
        return set(re.findall(r"^\s+U (\S+)$", elf.output("nm", "-u", path), re.MULTILINE))

    def checked_calls(self, path):
        return {name for name in self.undefined(path) if re.fullmatch(r"__\w+_chk", name)}

    def instead(self, compiled, *wanted):
        """What the compiler says when it is called as for that file, but to do something else."""
        command, = (command for command, made in commands(self.work) if made == compiled)
        words = [word for word in shlex.split(command) if not word.endswith("ccache")]
        words[words.index("-o"):words.index("-o") + 2] = wanted
        return elf.output(*words)

    def level(self, *more):
        """What the source of the object sees as _FORTIFY_SOURCE."""
        found = re.search(r"^#define _FORTIFY_SOURCE (\d)", self.instead(self.OBJECT, "-E", "-dM", *more), re.MULTILINE)
        return found and found.group(1)

    def hardened(self, library):
        entries = dict(entry for entry in elf.dynamic_entries(library) if entry[0] != "NEEDED")
        self.assertIn("NOW", entries.get("FLAGS_1", "").split())
        self.assertIn("GNU_RELRO", elf.output("readelf", "-lW", library))

    def test_none(self):
        library, compiled = self.build("", build_type="Release")
        self.hardened(library)
        self.assertNotEqual(self.checked_calls(compiled), set())
        self.assertEqual(self.level(), "2")
        self.assertIsNone(self.level("-O0"))

    def test_of_debian(self):
        library, compiled = self.build("-g -O2 -ffile-prefix-map=/a=. -fstack-protector-strong -Wformat "
                                       "-Werror=format-security -Wdate-time -D_FORTIFY_SOURCE=2", "-Wl,-z,relro", tests=True)
        self.hardened(library)
        self.assertIn("__stack_chk_fail", self.undefined(compiled))
        self.assertNotEqual(self.checked_calls(compiled), set())
        self.assertEqual(self.level(), "2")
        self.instead(self.TEST, "-fsyntax-only")  # tests are compiled without optimisation

    def test_a_higher_level_of_checks_stays(self):
        library, compiled = self.build("-O2 -D_FORTIFY_SOURCE=3 -fexceptions", "-Wl,-z,now")
        self.hardened(library)
        self.assertNotEqual(self.checked_calls(compiled), set())
        self.assertEqual(self.level(), "3")

    def test_the_users_word_is_the_last(self):
        library, compiled = self.build("-O2 -fno-stack-protector -fcf-protection=none", "-Wl,-z,lazy")
        entries = dict(entry for entry in elf.dynamic_entries(library) if entry[0] != "NEEDED")
        self.assertNotIn("NOW", entries.get("FLAGS_1", "").split())
        self.assertNotIn("__stack_chk_fail", self.undefined(compiled))
        self.assertEqual(properties(library), [set()])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "Flags" if WHAT == "flags" else "Hardened"])
