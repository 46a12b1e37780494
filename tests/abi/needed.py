#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: needed.py LIBRARY_FOLDER

What libovra.so.1 and libovra.a need to run: the C library and the platform libraries, these by the dynamic linker
alone, so that a system or a test can put its own in their place.
"""
import os
import re
import sys
import unittest

import elf

FOLDER = sys.argv.pop(1)
SHARED = os.path.join(FOLDER, "libovra.so.1")
ARCHIVE = os.path.join(FOLDER, "libovra.a")
PLATFORM = {"libdevns.so.1", "libhwtree.so.1", "libvolset.so.1", "libkvlist.so.1"}
CALLS_INTO_PLATFORM = ("devns_", "ht_", "vs_", "kvlist_")
ONE_FOR_ALL_THREADS = {"strtok", "asctime", "ctime", "gmtime", "localtime", "setlocale", "rand"}
# Of the C++ run-time library: its own functions, guards and exceptions, new, delete, class information.
RUN_TIME = re.compile(r"_ZSt|_ZNSt|_ZNKSt|__cxa_|_Zn|_Zd|_ZTVN10__cxxabiv|__gxx_|_Unwind_")


class SharedLibrary(unittest.TestCase):
    def test_needs_the_c_library_and_the_platform_libraries(self):
        # Not the dynamic linker: it would find what belongs to a thread, and end the process for want of memory.
        self.assertEqual(set(elf.needed(SHARED)), PLATFORM | {"libc.so.6"})

    def test_platform_calls_go_through_the_linkage_table(self):
        exported, undefined = elf.dynamic_symbols(SHARED)
        calls = {name for name in undefined if name.startswith(CALLS_INTO_PLATFORM)}
        self.assertLessEqual({"devns_open", "devns_ioctl", "devns_close"}, calls)
        own = {symbol.name for symbol in exported if symbol.name.startswith(CALLS_INTO_PLATFORM)}
        self.assertEqual(own, set())
        # A call that a library may lack is looked at before it is made: its place in the table is another one.
        slots = set(re.findall(r"(?:JUMP_SL|GLOB_DAT)\S*\s+[0-9a-f]+\s+(\w+)",
                               elf.output("readelf", "-rW", SHARED)))
        self.assertEqual(calls - slots, set())

    def test_nothing_is_bound_inside_and_no_path_goes_before_the_environments(self):
        entries = elf.dynamic_entries(SHARED)
        tags = {tag for tag, _ in entries}
        flags = " ".join(value for tag, value in entries if tag in ("FLAGS", "FLAGS_1"))
        self.assertEqual(tags & {"RPATH", "SYMBOLIC", "TEXTREL"}, set())
        self.assertEqual([value for tag, value in entries if tag == "RUNPATH"], ["$ORIGIN"])
        self.assertNotIn("SYMBOLIC", flags)
        self.assertEqual([value for tag, value in entries if tag == "SONAME"], ["libovra.so.1"])


class Threads(unittest.TestCase):
    """Calls of the C library that keep their state for the whole process would let two threads disturb each other."""

    def test_no_state_of_the_process_is_used(self):
        for library in sorted({os.path.basename(SHARED)} | PLATFORM):
            _, undefined = elf.dynamic_symbols(os.path.join(FOLDER, library))
            self.assertTrue(undefined & {"free", "_ZdlPv", "_ZdlPvm"}, f"{library}: {undefined}")
            self.assertEqual(undefined & ONE_FOR_ALL_THREADS, set(), library)
        undefined = elf.undefined_in(ARCHIVE)
        self.assertEqual(undefined & ONE_FOR_ALL_THREADS, set(), ARCHIVE)

    def test_state_of_the_process_is_the_switches_and_the_conversion(self):
        """What else could be written to would be shared by all handles in all threads. Tables are written by the linker
        alone, in sections of their own, and what belongs to one thread (.tdata, .tbss) is shared by none."""
        found = set()
        for line in elf.output("nm", "-f", "sysv", ARCHIVE).splitlines():
            fields = [field.strip() for field in line.split("|")]
            if len(fields) == 7 and re.fullmatch(r"\.(data|bss)(\.(?!rel\.ro).*)?", fields[6]):
                found.add(fields[0])
        conversion = {"_ZL14utf8_to_ucs2le", "_ZL21utf8_to_ucs2le_in_use", "_ZL17descriptor_opened", "_ZL13fork_prepared"}
        self.assertEqual(found - conversion, {"ovra_path_eprint", "ovra_path_debug"})


class Archive(unittest.TestCase):
    def test_needs_nothing_of_the_cxx_run_time_library(self):
        undefined = elf.undefined_in(ARCHIVE)
        self.assertIn("malloc", undefined)
        self.assertEqual({name for name in undefined if RUN_TIME.match(name)}, set())

    def test_nothing_runs_before_main_or_after_it(self):
        text = elf.output("readelf", "-SW", ARCHIVE)
        objects = re.split(r"^File: ", text, flags=re.MULTILINE)[1:]
        self.assertGreater(len(objects), 1)
        found = []
        for entry in objects:
            name = entry.split("\n", 1)[0]
            self.assertIn(" .text", entry, f"{name} has no sections")
            found += [f"{name}: {section}" for section in
                      re.findall(r"\.(?:init_array|fini_array|preinit_array|ctors|dtors)\S*", entry)]
        self.assertEqual(found, [])


if __name__ == "__main__":
    unittest.main()
