#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: beside.py OVRA MACHINE_CALLS CAPTURED_MACHINES

The command, called efibootmgr, beside efibootmgr 17: the same words on the same machine print the same, end with the
same status and leave the same variables behind. Where they do not, rows.py has the reason.
"""
import os
import shutil
import subprocess
import sys
import unittest

import rows
from pair import Machine, plain

OURS, CALLS, CAPTURED = sys.argv[1:4]
THEIRS = shutil.which("efibootmgr", path=os.environ["PATH"] + ":/usr/sbin:/usr/bin:/sbin")


class Beside(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.machines = {name: Machine(CAPTURED, name, THEIRS, OURS, CALLS) for name in ("q35", "pc")}

    @classmethod
    def tearDownClass(cls):
        for machine in cls.machines.values():
            machine.folder.cleanup()

    def test_lists(self):
        for name, machine in self.machines.items():
            for words in ([], ["-u"], ["-v"], ["-v", "-u"], ["-r"], ["-y"], ["-q"], ["-v", "-q"]):
                with self.subTest(machine=name, words=words):
                    theirs, ours = machine.both(words, rows.NAMED)
                    self.assertEqual(ours[2:], theirs[2:])
                    self.assertEqual(ours[0], theirs[0])
                    if "-v" in words:
                        self.assertEqual(plain(ours[1]), plain(theirs[1]))
                    else:
                        self.assertEqual(ours[1], theirs[1])

    def test_same(self):
        written = 0
        for words, changes in rows.SAME:
            with self.subTest(words=words, changes=changes):
                theirs, ours = self.machines["q35"].both(words, changes, rows.GIVEN)
                self.assertEqual(ours, theirs)
                written += bool(ours[3])
        self.assertGreaterEqual(written, 30)

    def test_network(self):
        """Of its two nodes those bytes that say nothing are what happened to lie in memory; ours are zeros."""
        card = bytes.fromhex("030b2500") + bytes.fromhex(rows.CARD[1].replace(":", ""))
        nothing = bytes(26) + b"\1" + bytes.fromhex("030c1b00") + bytes(23)
        for words in rows.NETWORK:
            with self.subTest(words=words):
                theirs, ours = self.machines["q35"].both(words)
                self.assertEqual(ours[:3], theirs[:3])
                at = ours[3]["Boot0008"].index(card) + len(card)
                end = at + len(nothing)
                self.assertEqual(ours[3]["Boot0008"][at:end], nothing)
                self.assertEqual(theirs[3]["Boot0008"][at + 26:at + 31], nothing[26:31])
                theirs[3]["Boot0008"] = theirs[3]["Boot0008"][:at] + nothing + theirs[3]["Boot0008"][end:]
                self.assertEqual(ours[3], theirs[3])

    def test_refused_alike(self):
        for words, changes in rows.REFUSED:
            with self.subTest(words=words, changes=changes):
                theirs, ours = self.machines["q35"].both(words, changes)
                self.assertEqual((ours[0], ours[3], ours[2].split(": ")[0]),
                                 (theirs[0], theirs[3], theirs[2].split(": ")[0]))
                self.assertEqual(ours[1], theirs[1])

    def test_better(self):
        for row in rows.BETTER:
            with self.subTest(words=row.words, why=row.why):
                theirs, ours = self.machines["q35"].both(row.words, row.changes)
                self.assertNotEqual(ours, theirs, "the row is not needed")
                self.assertEqual((ours[0], ours[3]), (row.status, row.written))
                self.assertIn(row.shown, ours[1] + ours[2])

    def test_a_list_that_cannot_be_written(self):
        machine = self.machines["q35"]
        for words, made in ((["-n", "1"], True), ([], False)):
            machine.lay_out({})
            with self.subTest(words=words), open("/dev/full", "wb") as full:
                done = subprocess.run(["efibootmgr", *words], executable=OURS, stdout=full, stderr=subprocess.PIPE,
                                      env={"EFIVARFS_PATH": machine.variables}, check=False)
                self.assertEqual(done.returncode, 1)
                self.assertEqual(b"The changes were made.\n" in done.stderr, made)
                self.assertEqual("BootNext" in machine.stored(), made)

    def test_help(self):
        for words in (["-h"], ["--help"], ["--nothing"], ["-n"]):
            with self.subTest(words=words):
                theirs, ours = self.machines["pc"].both(words)
                self.assertEqual((ours[0], ours[2]), (theirs[0], theirs[2]))
                self.assertEqual(ours[1].splitlines()[:2], theirs[1].splitlines()[:2])
                options = [line.split()[:3] for line in theirs[1].splitlines()[2:]]
                for short, _, _ in options:
                    self.assertIn(f"\t{short} | --", ours[1])

    def test_a_link_and_the_folder_of_the_machine(self):
        machine = self.machines["pc"]
        machine.lay_out({})
        link = f"{machine.root}/efibootmgr"
        os.symlink(OURS, link)
        outputs = [subprocess.run([link], env={"PATH": os.environ["PATH"], **where}, capture_output=True, check=True)
                   for where in ({"HWPLAT_ROOT": machine.root}, {"EFIVARFS_PATH": machine.variables},
                                 {"EFIVARFS_PATH": machine.variables + "/", "HWPLAT_ROOT": "/nothing"})]
        self.assertIn(b"\nBoot0000* UiApp\n", outputs[0].stdout)
        self.assertEqual({each.stdout for each in outputs}, {outputs[0].stdout})
        refused = subprocess.run([link], env={"EFIVARFS_PATH": machine.root}, capture_output=True, check=False)
        self.assertEqual((refused.returncode, refused.stdout), (2, b""))
        self.assertIn(b"EFI variables are not supported on this system.\n", refused.stderr)


if __name__ == "__main__":
    version = THEIRS and subprocess.run([THEIRS, "-V"], capture_output=True, text=True, check=False).stdout
    if version != "version 17\n":
        print("efibootmgr 17 is not installed")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
