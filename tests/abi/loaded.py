#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: loaded.py LIBRARY_FOLDER flags|growth

Programs with plugins load and close a library as often as they like. "flags": each library is marked to stay where it
is, and has its variables of threads where they need no memory. "growth": each is loaded, used and closed again and again in a process of its own, whose memory must not grow.
"""
import _ctypes
import ctypes
import gc
import os
import subprocess
import sys
import tempfile
import unittest

import elf
import machine

FOLDER, WHAT = sys.argv[1:3]
LIBRARIES = sorted(elf.listed())
WARM_UP, CYCLES, LIMIT = 20, 400, 8192


def use(name, library):
    """One use of the library that gives back all that it took."""
    failed = ctypes.c_int(0)
    if name == "libovra.so.1":
        handle = ctypes.c_void_p()
        library.ovra_fini.restype = None
        assert library.ovra_init(ctypes.byref(handle)) == 0
        text = ctypes.c_char_p()
        assert library.ovra_bootopt_desc_get(handle, b"Boot0000", ctypes.byref(text)) == 0 and text.value == b"Disk"
        library.ovra_fini(handle)
    elif name == "libhwtree.so.1":
        library.ht_init.restype = ctypes.c_void_p
        tree = library.ht_init(b"/", 3)
        assert tree
        library.ht_fini(ctypes.c_void_p(tree))
    elif name == "libvolset.so.1":
        library.vs_get_descriptors.restype = ctypes.c_void_p
        found = library.vs_get_descriptors(1, None, ctypes.byref(failed))
        assert found and failed.value == 0
        library.vs_free_descriptors(ctypes.c_void_p(found))
    elif name == "libdevns.so.1":
        descriptor = library.devns_open(b"/dev/null", os.O_RDONLY)
        assert descriptor >= 0
        assert library.devns_close(descriptor) == 0
    else:
        library.kvlist_alloc.restype = ctypes.c_void_p
        made = library.kvlist_alloc()
        assert made
        library.kvlist_free(ctypes.c_void_p(made))


class Counts(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in
                ("arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks", "fordblks", "keepcost")]


def grow(name):
    """Prints by how many bytes in use, of blocks and of mappings, the process grows once it has settled."""
    counts = ctypes.CDLL(None).mallinfo2
    counts.restype = Counts

    def in_use():
        gc.collect()  # what the interpreter keeps of closed libraries
        now = counts()
        with open("/proc/self/maps", encoding="utf-8") as file:
            return now.uordblks + now.hblkhd, sum(1 for _ in file)

    before = None
    for cycle in range(WARM_UP + CYCLES):
        if cycle == WARM_UP:
            before = in_use()
        library = ctypes.CDLL(os.path.join(FOLDER, name))
        use(name, library)
        _ctypes.dlclose(library._handle)
        del library
    after = in_use()
    print(after[0] - before[0], after[1] - before[1])


class Flags(unittest.TestCase):
    def test_stays_loaded(self):
        for name in LIBRARIES:
            with self.subTest(name):
                flags = dict(entry for entry in elf.dynamic_entries(os.path.join(FOLDER, name)) if entry[0] != "NEEDED")
                self.assertIn("NODELETE", flags.get("FLAGS_1", "").split())

    # Variables of threads that were allocated at their first use would end a process without memory.
    def test_variables_of_threads_are_in_the_block_of_each_thread(self):
        for name in LIBRARIES:
            with self.subTest(name):
                path = os.path.join(FOLDER, name)
                flags = dict(entry for entry in elf.dynamic_entries(path) if entry[0] != "NEEDED")
                self.assertRegex(elf.output("readelf", "-lW", path), r"(?m)^\s+TLS\s")
                self.assertIn("STATIC_TLS", flags.get("FLAGS", "").split())


class Growth(unittest.TestCase):
    def test_of_each_library(self):
        with tempfile.TemporaryDirectory() as root:
            firmware = machine.Machine(root)
            firmware.write("Boot0000", machine.load_option("Disk", machine.file_path("\\a.efi")))
            for name in LIBRARIES:
                with self.subTest(name):
                    run = subprocess.run([sys.executable, "-B", __file__, FOLDER, name], env=firmware.environment(),
                                         capture_output=True, text=True, check=False)
                    self.assertEqual(run.returncode, 0, run.stderr)
                    grown, mappings = map(int, run.stdout.split())
                    self.assertLess(grown, LIMIT)
                    self.assertLessEqual(mappings, 2)


if __name__ == "__main__":
    if WHAT in LIBRARIES:
        grow(WHAT)
    else:
        unittest.main(argv=[sys.argv[0], WHAT.capitalize()])
