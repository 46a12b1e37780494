#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: startup.py LIBRARY_FOLDER PROGRAM MACHINE static|shared

What a program loads to read a variable, and when the library that reads partition tables is loaded. The C++ run-time
library is part of the platform libraries ("static") or a library of its own.
"""
import json
import os
import re
import struct
import subprocess
import sys
import tarfile
import tempfile
import unittest

import elf
import machine

FOLDER, PROGRAM, CAPTURED, RUNTIME = sys.argv[1:5]
PLATFORM = {"libdevns.so.1", "libhwtree.so.1", "libvolset.so.1", "libkvlist.so.1"}
OURS = PLATFORM | {"libovra.so.1"}
C_LIBRARY = {"libc.so.6", "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1"}
CXX = {"libstdc++.so.6", "libgcc_s.so.1", "libm.so.6"} if RUNTIME == "shared" else set()
BLKID = "libblkid.so.1"
READ_MEDIA = {"libdevns.so.1", "libvolset.so.1"}


def loaded_later(library):
    """What the note of a file says about the libraries that it loads itself."""
    with tempfile.NamedTemporaryFile() as file:
        elf.output("objcopy", "-O", "binary", "--only-section=.note.dlopen", os.path.join(FOLDER, library), file.name)
        note = file.read()
    name_size, text_size, kind = struct.unpack("<III", note[:12])
    assert (name_size, kind, note[12:16], len(note)) == (4, 0x407C0C0A, b"FDO\0", 16 + (text_size + 3) // 4 * 4), note
    return [name for entry in json.loads(note[16:16 + text_size].rstrip(b"\0")) for name in entry["soname"]]


class Loaded(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = folder.name
        with tarfile.open(CAPTURED) as archive:
            archive.extractall(self.root)

    def run_program(self, *arguments, **variables):
        """(its first line, the sonames of what it has mapped)"""
        run = subprocess.run([PROGRAM, *arguments], env=machine.environment(self.root, **variables), capture_output=True,
                             text=True, check=False)
        self.assertEqual(run.returncode, 0, run.stderr)
        first, *paths = run.stdout.splitlines()
        sonames = set()
        for path in set(paths):
            if re.search(r"\.so(\.|$)", os.path.basename(path)):
                sonames.update(value for tag, value in elf.dynamic_entries(path) if tag == "SONAME")
        return first, sonames

    def test_a_variable_is_read_without_the_disks(self):
        first, loaded = self.run_program("variable", "Boot0000")
        self.assertNotEqual(first, "")
        self.assertLessEqual(OURS | {"libc.so.6"}, loaded)
        self.assertLessEqual(loaded - OURS, C_LIBRARY | CXX)

    def test_media_load_the_library_that_reads_them(self):
        first, loaded = self.run_program("media")
        self.assertRegex(first, r"^error 0, [1-9]\d* media$")
        self.assertLessEqual(loaded - OURS, C_LIBRARY | CXX | {BLKID})
        self.assertIn(BLKID, loaded)

    def test_without_that_library_the_media_are_not_taken_for_absent(self):
        with tempfile.TemporaryDirectory() as folder:
            with open(os.path.join(folder, BLKID), "wb"):
                pass
            first, loaded = self.run_program("media", LD_LIBRARY_PATH=folder)
            self.assertEqual(first, "a library is missing")
            self.assertNotIn(BLKID, loaded)
            first, _ = self.run_program("variable", "Boot0000", LD_LIBRARY_PATH=folder)
            self.assertNotEqual(first, "")


class Needed(unittest.TestCase):
    def test_platform_libraries_need_each_other_and_the_c_library(self):
        for library in sorted(PLATFORM):
            with self.subTest(library):
                needed = set(elf.needed(os.path.join(FOLDER, library)))
                self.assertLessEqual(needed, PLATFORM | C_LIBRARY | CXX)

    def test_what_is_loaded_later_stands_in_the_file(self):
        for library in sorted(OURS):
            with self.subTest(library):
                self.assertEqual("FDO" in elf.notes(os.path.join(FOLDER, library)), library in READ_MEDIA)
                _, undefined = elf.dynamic_symbols(os.path.join(FOLDER, library))
                self.assertEqual("dlopen" in undefined, library in READ_MEDIA)
                if library in READ_MEDIA:
                    self.assertEqual(loaded_later(library), [BLKID])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
