#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: readme.py BUILD_FOLDER configure|examples

README.md's lines, run as on a system that has only what `scripts/install-packages build` installs: the other programs
are not in PATH, and CMake is told not to find the libraries of the tests. "configure" configures the files that git
knows, in a folder with blanks in its name, in every way that people do, and builds one library. "examples" installs
BUILD_FOLDER below a temporary folder and uses the installation. fresh.py does all of it on a system of its own.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from blocks import ROOT, build_lines, commands, write_examples

sys.path.insert(0, os.path.join(ROOT, "tests", "abi"))
import machine  # noqa: E402

BUILD = sys.argv[1]
PROGRAMS = """
    ar as awk basename bash c++ cat chmod cmake cp cut dirname dpkg-query echo env false g++ gcc cc grep head id ld ln ls
    make mkdir mv ninja nm objcopy objdump pkg-config printf pwd ranlib readelf rm sed sh sort strip tail test touch tr
    true uname wc
""".split()
HIDDEN = ["GTest", "Python3", "Python", "benchmark"]


class Private(unittest.TestCase):
    FOLDER = "work"

    def setUp(self):
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        self.work = os.path.join(work.name, self.FOLDER)
        self.programs = os.path.join(work.name, "programs")
        os.makedirs(self.work)
        os.mkdir(self.programs)
        for name in PROGRAMS:
            found = shutil.which(name)
            if found:
                os.symlink(found, os.path.join(self.programs, name))
        # What it is given is done by the user who runs the test. The loader's cache is that of the real system.
        self.program("sudo", 'exec "$@"')
        self.program("ldconfig", f'echo "$@" >>"{work.name}/ldconfig"')
        self.toolchain = os.path.join(work.name, "hidden.cmake")
        with open(self.toolchain, "w", encoding="utf-8") as file:
            file.writelines(f"set(CMAKE_DISABLE_FIND_PACKAGE_{name} ON)\n" for name in HIDDEN)
        self.environment = {"PATH": self.programs, "HOME": self.work, "LC_ALL": "C", "TMPDIR": work.name,
                            "CMAKE_TOOLCHAIN_FILE": self.toolchain}

    def program(self, name, line):
        path = os.path.join(self.programs, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\n{line}\n")
        os.chmod(path, 0o755)

    def run_lines(self, script, folder, status=0, **more):
        done = subprocess.run(["bash", "-c", script], cwd=folder, env={**self.environment, **more},
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        self.assertEqual(done.returncode, status, f"{script}\n{done.stdout}")
        return done.stdout


class Configure(Private):
    FOLDER = "a folder"
    NOTE = "Tests are not built: GoogleTest with GoogleMock"

    def setUp(self):
        super().setUp()
        listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z"], capture_output=True, text=True, check=True)
        for name in listed.stdout.split("\0"):
            if name:
                os.makedirs(os.path.dirname(os.path.join(self.work, name)), exist_ok=True)
                shutil.copy2(os.path.join(ROOT, name), os.path.join(self.work, name), follow_symlinks=False)

    def builds_a_library(self, script, **more):
        text = self.run_lines(script, self.work, **more)
        built = self.run_lines("cmake --build build --target kvlist", self.work, **more)
        self.assertNotIn("warning", (text + built).lower())
        self.assertTrue(os.path.isfile(os.path.join(self.work, "build", "lib", "libkvlist.so.1")))
        return text

    def test_lines_of_the_readme(self):
        packages, _ = build_lines()
        self.assertIn("&& cmake --build build\n", packages)
        self.assertIn(self.NOTE, self.builds_a_library(packages.replace(" && cmake --build build\n", "\n")))

    def test_without_any_option(self):
        self.assertIn(self.NOTE, self.builds_a_library("cmake -S . -B build"))
        with open(os.path.join(self.work, "build", "CMakeCache.txt"), encoding="utf-8") as file:
            cache = file.read()
        self.assertIn("CMAKE_GENERATOR:INTERNAL=Unix Makefiles\n", cache)
        self.assertIn("CMAKE_BUILD_TYPE:STRING=Release\n", cache)
        self.warnings_end_no_build()

    def warnings_end_no_build(self):
        with open(os.path.join(self.work, "platform", "kvlist", "kvlist.cpp"), "a", encoding="utf-8") as file:
            file.write("static void unused() {}\n")
        self.assertIn("unused", self.run_lines("cmake --build build --target kvlist", self.work))
        self.run_lines("cmake -S . -B build -DOVRA_WERROR=ON && ! cmake --build build --target kvlist", self.work)

    # One folder, in which the compilers are looked at once: each line says all that it is about.
    def test_with_tests_and_without(self):
        configure = "cmake -S . -B build -G Ninja -UOVRA_TESTS -UBUILD_TESTING"
        for option in ("-DBUILD_TESTING=OFF", "-DOVRA_TESTS=OFF"):
            self.assertNotIn("Tests are", self.run_lines(f"{configure} {option}", self.work))
        self.assertIn(self.NOTE, self.run_lines(configure, self.work))
        text = self.run_lines(f"{configure} -DOVRA_TESTS=ON", self.work, status=1)
        self.assertIn("The tests need GoogleTest with GoogleMock", text)
        self.assertIn("scripts/install-packages check", text)

    def test_by_clang(self):
        clang, clangxx = shutil.which("clang"), shutil.which("clang++")
        if not clang or not clangxx:
            self.skipTest("no clang")
        self.builds_a_library("cmake -S . -B build -G Ninja", CC=clang, CXX=clangxx)


class Examples(Private):
    def setUp(self):
        super().setUp()
        write_examples(self.work)
        self.machine = machine.Machine(os.path.join(self.work, "machine"))
        self.machine.write("Boot0000", machine.load_option("Disk", machine.file_path("\\a.efi")))
        self.machine.write("Boot0002", machine.load_option("Network", machine.file_path("\\b.efi")))
        self.environment["HWPLAT_ROOT"] = self.machine.root
        os.symlink(BUILD, os.path.join(self.work, "build"))

    def listed(self, text):
        self.assertEqual(sorted(line.split(" ")[0] for line in text.splitlines()[-2:]), ["Boot0000", "Boot0002"], text)

    def test_into_the_system(self):
        system = os.path.join(self.work, "system")
        _, install = build_lines()
        self.run_lines(install, self.work, DESTDIR=system)
        self.assertTrue(os.path.isfile(os.path.join(self.work, "..", "ldconfig")), "the loader is not told")
        usr = os.path.join(system, "usr", "local")
        # The places where a system looks by itself.
        found = {"PKG_CONFIG_PATH": f"{usr}/lib/pkgconfig", "CMAKE_PREFIX_PATH": usr, "LD_LIBRARY_PATH": f"{usr}/lib"}
        self.listed(self.run_lines(commands("From C"), os.path.join(self.work, "c"), **found))
        self.listed(self.run_lines(commands("From C++ with CMake"), os.path.join(self.work, "c++"), **found))
        self.listed(self.run_lines(f'"{usr}/bin/ovra" list | grep -o "Boot000."', self.work))

    def test_into_a_folder_of_ones_own(self):
        home = os.path.join(self.work, "home")
        script = commands("Building and installing", 1).replace("cc list.c", "cd c && cc list.c")
        self.listed(self.run_lines(f"{script}./list\n", self.work, HOME=home))
        self.listed(self.run_lines(f'"{home}/.local/bin/ovra" list | grep -o "Boot000."', self.work))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], sys.argv[2].capitalize()])
