#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: peers.py OVRA CAPTURED_MACHINES

Runs the command line of each row of docs/peers.md on a sample machine, and looks for what the row says that
it prints: the words in the order of the row, with anything for "...". The machine is a captured one to which some
options are added; beside it lie machines that have something special.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from blocks import ROOT

OVRA, CAPTURED = sys.argv[1:3]
EXIT_STATUSES = {"0": 0, "1": 1, "2": 2}
SHIM = "\\EFI\\debian\\shimx64.efi"


def rows():
    with open(os.path.join(ROOT, "docs", "peers.md"), encoding="utf-8") as file:
        cells = [[cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]] for line in file
                 if re.match(r"\| \d+ \|", line)]
    return [(number, command.strip("`").replace("\\|", "|"), printed.strip("`").replace("\\|", "|"), status)
            for number, _, command, printed, status in cells]


class Peers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.kept = tempfile.TemporaryDirectory()
        cls.work = cls.kept.name
        cls.sample = os.path.join(cls.work, "sample")
        subprocess.run(["cp", "-a", "--sparse=always", f"{CAPTURED}/q35", cls.sample], check=True)
        create = ["create", "--desc", "debian", "--disk", "/dev/sda1", "--file", SHIM, "--optdata-ascii", "quiet"]
        cls.type(*create)
        cls.type(*create)  # Boot0009, the same once more
        cls.type("create", "--desc", "old disk", "--devpath",
                 "HD(1,GPT,00112233-4455-6677-8899-aabbccddeeff,0x800,0x800)", "--file", "\\EFI\\old.efi")
        cls.type("create", "--desc", "Recovery", "--disk", "/dev/sdd1", "--file", "\\EFI\\recovery.efi", "--inactive")
        cls.type("export", os.path.join(cls.work, "saved.txt"))
        cls.type("order", "first", "Recovery")
        variables = os.path.join(cls.sample, "sys/firmware/efi/efivars")
        with open(f"{variables}/BootOrder-8be4df61-93ca-11d2-aa0d-00e098032b8c", "ab") as order:
            order.write(b"\xff\x00")
        for name, text in (("md", "md_arrays"), ("board", "emmc_by_acpi")):
            subprocess.run([OVRA, "machine", "create", os.path.join(cls.work, name),
                            os.path.join(ROOT, f"tests/machines/{text}.machine")], check=True, capture_output=True)
        cls.add_others()

    @classmethod
    def add_others(cls):
        shutil.copytree(cls.sample, f"{cls.work}/full", symlinks=True)
        state = f"{cls.work}/full/var/lib/hwplat"
        os.makedirs(state, exist_ok=True)
        with open(f"{state}/capacity", "w", encoding="ascii") as file:
            file.write("4500 4000\n")
        os.makedirs(f"{cls.work}/chroot/sys")

    @classmethod
    def tearDownClass(cls):
        cls.kept.cleanup()

    @classmethod
    def type(cls, *words):
        subprocess.run([OVRA, "--root", cls.sample, *words], check=True, capture_output=True)

    def setUp(self):
        # All that a command may change of a machine.
        self.changing = [f"{self.work}/{machine}/{part}" for machine in ("sample", "md", "board", "full")
                         for part in ("sys/firmware/efi/efivars", "var/lib/hwplat")]
        self.before = {folder: self.read(folder) for folder in self.changing}

    def read(self, folder):
        contents = {}
        for name in os.listdir(folder) if os.path.isdir(folder) else ():
            with open(f"{folder}/{name}", "rb") as file:
                contents[name] = file.read()
        return contents

    def put_back(self):
        for folder, files in self.before.items():
            now = self.read(folder)
            for name in now.keys() - files.keys():
                os.remove(f"{folder}/{name}")
            for name, data in files.items():
                if now.get(name) != data:
                    with open(f"{folder}/{name}", "wb") as file:
                        file.write(data)

    def test_rows(self):
        found = rows()
        self.assertEqual([int(row[0]) for row in found], list(range(1, 26)))
        programs = f"{self.work}/programs"
        os.mkdir(programs)
        os.symlink(OVRA, f"{programs}/ovra")
        for number, command, printed, status in found:
            with self.subTest(row=number, command=command):
                self.run_row(command, printed, EXIT_STATUSES[status], programs)
                self.put_back()

    def run_row(self, command, printed, status, programs):
        done = subprocess.run(["bash", "-c", command], cwd=self.work, check=False, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT,
                              env={"PATH": f"{programs}:/usr/bin:/bin", "HWPLAT_ROOT": f"{self.work}/sample",
                                   "LC_ALL": "C.UTF-8"})
        self.assertEqual(done.returncode, status, done.stdout)
        words = [" ".join(part.split()) for part in printed.split("...")]
        pattern = ".*".join(re.escape(part) for part in words)
        self.assertRegex(" ".join(done.stdout.split()), pattern)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
