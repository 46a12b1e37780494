#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: cancelled.py PROGRAM MACHINE

Runs the program, which calls every exported function in a thread that is cancelled, on a captured machine and with the
variables in files: no call may end before it is done, and the thread ends when it is back from the last.
"""
import subprocess
import sys
import tarfile
import tempfile
import unittest

import elf
import machine

PROGRAM, CAPTURED = sys.argv[1:3]


class Cancelled(unittest.TestCase):
    def test_no_call_ends_early(self):
        with tempfile.TemporaryDirectory() as root, tarfile.open(CAPTURED) as archive:
            archive.extractall(root)
            run = subprocess.run([PROGRAM, "c0t0d0s0"], env=machine.environment(root, OVRA_PATH_DEBUG="1"),
                                 capture_output=True, text=True, errors="replace", check=False, timeout=100)
        self.assertEqual(run.returncode, 0, run.stderr[-2000:])
        self.assertRegex(run.stdout, r"^finished after \d+ calls; wrong: 0; cancelled\n$", run.stderr[-2000:])

    def test_every_exported_function_is_called(self):
        listed = elf.listed()["libovra.so.1"]
        _, undefined = elf.dynamic_symbols(PROGRAM)
        self.assertEqual({symbol.name for symbol in listed} - undefined, set())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
