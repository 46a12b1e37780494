#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: consumer.py PROGRAM [uses]

Runs the C program on a machine made for it and looks at what it left there. With "uses": compares the functions of
libovra that the program refers to with tests/abi/symbols.txt.
"""
import os
import subprocess
import sys
import tempfile
import unittest

import elf
import machine

PROGRAM = sys.argv.pop(1)
PATH = bytes.fromhex("04040c005c007800790000007fff0400")


class Consumer(unittest.TestCase):
    def test_leaves_what_it_wrote(self):
        with tempfile.TemporaryDirectory() as root:
            firmware = machine.Machine(root)
            firmware.write("BootCurrent", b"\3\0", attributes=6)
            run = subprocess.run([PROGRAM], env=firmware.environment(), capture_output=True, text=True, check=False)
            self.assertEqual((run.returncode, run.stdout), (0, "used\n"), run.stderr)
            self.assertEqual(firmware.read("Boot0000"), (7, machine.load_option("One", PATH, 1, b"\xaa\xbb")))
            self.assertEqual(firmware.read("Boot0001"), (7, machine.load_option("Two", PATH)))
            self.assertEqual(firmware.order(), ["Boot0001"])
            self.assertEqual(firmware.names(), ["Boot0000", "Boot0001", "BootCurrent", "BootOrder"])
            self.assertEqual(firmware.read("BootCurrent")[1], b"\0\0")
            self.assertEqual(firmware.read("Example", "12345678-1234-5678-0102-030405060708"), (7, b"\1\2\3"))

    def test_fails_where_there_is_no_machine(self):
        with tempfile.TemporaryDirectory() as root:
            run = subprocess.run([PROGRAM], env=machine.environment(root), capture_output=True, text=True, check=False)
            self.assertEqual(run.returncode, 1)
            self.assertIn("ovra_init", run.stderr)
            self.assertEqual(os.listdir(root), [])


class Uses(unittest.TestCase):
    def test_every_exported_function(self):
        listed = elf.listed()["libovra.so.1"]
        _, undefined = elf.dynamic_symbols(PROGRAM)
        self.assertEqual({symbol.name for symbol in listed} - undefined, set())


if __name__ == "__main__":
    part = "Uses" if sys.argv[1:] == ["uses"] else "Consumer"
    unittest.main(argv=[sys.argv[0], part])
