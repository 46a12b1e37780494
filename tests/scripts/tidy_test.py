#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""scripts/tidy on a small project, with a program in the place of clang-tidy that notes on what it ran."""
import json
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

import script

# Says what a source asks for, as clang-tidy would.
CLANG_TIDY = r'''#!/bin/sh
[ "$1" = --version ] && { cat "$PLACE/version"; exit 0; }
for word; do case $word in --) break ;; -*) ;; *) source=$word ;; esac; done
for word; do case $word in --checks=*) checks=${word#--checks=} ;; esac; done
case $checks in -\*,clang-diagnostic-\**) kind=alone ;; *) kind=together ;; esac
echo "$kind $(basename "$source")" >>"$PLACE/ran"
if grep -q TWICE "$source" $(sed -n 's/#include "\(.*\)"/\1/p' "$source") && [ "$(grep -c . "$source")" -gt 1 ]; then
    echo "$PLACE/tree/src/a/two.cpp:1:1: error: redefinition of 'TWICE' [clang-diagnostic-error]"
    exit 1
fi
grep -q FINDING "$source" || exit 0
echo "$source:1:1: error: a finding [some-check,-warnings-as-errors]"
exit 1
'''
CONFIG = "# Why.\nChecks: >\n  -*,\n  bugprone-*,\n  clang-analyzer-*,\n  -bugprone-one\nWarningsAsErrors: '*'\n"


class Tidy(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.place = Path(place.name).resolve()
        self.tree = self.place / "tree"
        (self.tree / "scripts").mkdir(parents=True)
        shutil.copy2(script.SCRIPTS / "tidy", self.tree / "scripts/tidy")
        (self.place / "clang-tidy").write_text(CLANG_TIDY)
        (self.place / "clang-tidy").chmod(0o755)
        (self.place / "version").write_text("version 1\n")
        (self.place / "ran").touch()
        self.write(".clang-tidy", CONFIG)
        self.write("src/a/a.h", "int a; // a comment\n")
        self.write("src/a/one.cpp", '#include "src/a/a.h"\n')
        self.write("src/a/two.cpp", "int b;\n")
        self.commands("one.cpp", "two.cpp")

    def write(self, name, text):
        path = self.tree / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def commands(self, *names, flags=""):
        self.write("build-tidy/compile_commands.json", json.dumps([
            {"directory": str(self.tree / "build-tidy"), "file": str(self.tree / "src/a" / name),
             "command": f"c++ -I{self.tree} {flags} -MD -MT x.o -MF x.d -o x.o -c {self.tree / 'src/a' / name}"}
            for name in names]))

    def tidy(self, status=0):
        """On what clang-tidy ran, and what was said."""
        (self.place / "ran").write_text("")
        done = subprocess.run([self.tree / "scripts/tidy", "src"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              env={**os.environ, "PATH": f"{self.place}:{os.environ['PATH']}", "PLACE": str(self.place)},
                              text=True, check=False)
        self.assertEqual(done.returncode, status, done.stdout)
        return sorted((self.place / "ran").read_text().splitlines()), done.stdout

    def test_a_folder_is_checked_as_one_and_each_source_alone(self):
        self.assertEqual(self.tidy()[0], ["alone one.cpp", "alone two.cpp", "together src-a.cpp"])

    def test_what_passed_is_remembered(self):
        self.tidy()
        ran, said = self.tidy()
        self.assertEqual(ran, [])
        self.assertIn("3 of 3 remembered", said)

    def test_all_that_a_result_depends_on_makes_it_run_again(self):
        everything = ["alone one.cpp", "alone two.cpp", "together src-a.cpp"]
        for what, change, runs in (
            ("comment", lambda: self.write("src/a/a.h", "int a; // another\n"), [everything[0], everything[2]]),
            ("macro", lambda: self.write("src/a/a.h", "#define UNUSED\nint a; // another\n"), [everything[0], everything[2]]),
            ("source", lambda: self.write("src/a/two.cpp", "int c;\n"), everything[1:]),
            ("checks", lambda: self.write(".clang-tidy", CONFIG + "FormatStyle: file\n"), everything),
            ("version", lambda: (self.place / "version").write_text("version 2\n"), everything),
            ("flags", lambda: self.commands("one.cpp", "two.cpp", flags="-O1"), everything),
        ):
            with self.subTest(what):
                self.tidy()
                change()
                self.assertEqual(self.tidy()[0], runs)

    def test_a_finding_fails_and_is_never_remembered(self):
        self.write("src/a/two.cpp", "int FINDING;\n")
        for _ in range(2):
            ran, said = self.tidy(status=1)
            self.assertIn("alone two.cpp", ran)
            self.assertIn("two.cpp:1:1: error: a finding", said)
        self.assertEqual(ran, ["alone two.cpp"])

    def test_a_source_that_goes_with_no_other_is_a_finding_and_checked_on_its_own(self):
        self.write("src/a/two.cpp", "int TWICE;\n")
        ran, said = self.tidy(status=1)
        self.assertEqual(ran, ["alone one.cpp", "alone two.cpp", "together src-a.cpp", "together src-a.cpp",
                               "together two.cpp"])
        self.assertRegex(said, r"(?m)^tidy: src/a/two\.cpp alone$")
        self.assertRegex(said, r"(?m)^\S*src/a/two\.cpp:\d+:\d+: error: .*\[clang-diagnostic-error\]$")

    def test_a_source_that_nothing_compiles_is_an_error(self):
        self.write("src/b/three.cpp", "int d;\n")
        ran, said = self.tidy(status=1)
        self.assertEqual(ran, [])
        self.assertRegex(said, r"no build compiles .*/src/b/three\.cpp")

    def test_a_missing_build_folder_says_what_makes_it(self):
        shutil.rmtree(self.tree / "build-tidy")
        self.assertIn("cmake --preset tidy", self.tidy(status=1)[1])


if __name__ == "__main__":
    unittest.main()
