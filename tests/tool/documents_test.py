#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: documents_test.py TOOL SCHEMAS CAPTURED_MACHINES MACHINE_TEXTS FAILING_CALLS

What every verb prints with --json on every sample machine is as the schemas say, down to the last member; and each
member of the schemas is seen at least once.
"""
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

import documents

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../abi"))
import machine  # noqa: E402

TOOL, SCHEMAS, CAPTURED, TEXTS, FAILING = sys.argv[1:6]
# Machines are many small files.
MEMORY = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
# Said of real firmware alone; to users without rights; when a list fails that is printed in part; of a path behind
# another that libovra has no text for.
ELSEWHERE = {f"{verb}.schema.json/not_known" for verb in """create set rename copy remove order next timeout check import
    edit machine time reset""".split()} | {"list.schema.json/error", "vars.schema.json/variables/error",
                                  "common.schema.json/further_paths/path_error"}
HARD_DRIVE = bytes.fromhex("04012a0001000000000800000000000000100000000000000000000000000000000000000000000a0202")
GONE = HARD_DRIVE + machine.file_path("\\gone.efi")
NVME = bytes.fromhex("0317100001000000000000000000000a7fff0400")
schemas = documents.Schemas(SCHEMAS)


class Story(unittest.TestCase):
    """Calls of the command on a machine of its own."""

    @classmethod
    def setUpClass(cls):
        place = tempfile.TemporaryDirectory(dir=MEMORY)
        cls.addClassCleanup(place.cleanup)
        cls.place = place.name

    def setUp(self):
        self.root = os.path.join(self.place, self.id())
        self.addCleanup(shutil.rmtree, self.root, True)

    def take(self, captured):
        subprocess.run(["cp", "-a", "--sparse=always", os.path.join(CAPTURED, captured), self.root], check=True)

    def variable(self, name, data, attributes=7):
        path = os.path.join(self.root, "sys/firmware/efi/efivars", f"{name}-{machine.GLOBAL}")
        with open(path, "wb") as file:
            file.write(attributes.to_bytes(4, "little") + data)

    def call(self, *words, status=0, schema=None, given="", **environment):
        done = subprocess.run([TOOL, "--root", self.root, *words, "--json"], capture_output=True, text=True, check=False,
                              input=given, env=machine.environment(self.root, **environment))
        return self.judged(words, done, status, schema)

    def judged(self, words, done, status, schema):
        self.assertEqual(done.returncode, status, (words, done.stdout, done.stderr))
        document = json.loads(done.stdout)
        self.assertEqual(schemas.check(schema or words[0], document), [], words)
        said = [line for line in done.stderr.splitlines() if line.startswith("ovra: warning: ")]
        self.assertEqual(len(document["warnings"]), len(said), (words, done.stderr))
        return document

    def fails(self, *words, status=1, **more):
        return self.call(*words, status=status, schema="error", **more)["error"]


class Showing(Story):
    def show_all(self):
        self.call("list")
        names = [each["option"] for each in self.call("list", "-v")["options"]]
        for words in (("show", names[0]), ("show", names[-1]), ("disks",), ("tree",), ("vars",), ("order",), ("next",),
                      ("current",), ("timeout",), ("secureboot",), ("time",), ("time", "--wakeup"), ("export",)):
            self.call(*words)

    def test_captured_machines(self):
        for name in ("pc", "q35"):
            self.take(name)
            self.show_all()
            shutil.rmtree(self.root)

    def test_machines_as_texts(self):
        for name in sorted(os.listdir(TEXTS)):
            done = subprocess.run([TOOL, "machine", "create", self.root, os.path.join(TEXTS, name), "--json"],
                                  capture_output=True, text=True, check=False)
            self.judged(("machine", name), done, 0, None)
            self.call("disks")
            self.call("tree")
            shutil.rmtree(self.root)

    def test_what_is_damaged(self):
        self.take("pc")
        self.variable("Boot0001", b"abc")
        self.variable("Boot0050", machine.load_option("a", b"\1\2\3"))
        self.variable("Boot0051", machine.load_option("b", NVME + machine.END, 1, "quiet\0".encode("utf-16-le")))
        self.variable("Boot0052", machine.load_option("c", machine.file_path("\\a") + b"\1\2\7\0zzz" + machine.END))
        self.variable("Boot0053", machine.load_option("d", GONE))
        self.variable("Boot0054", machine.load_option("d", GONE))
        self.variable("Boot0055", machine.load_option("half \ud800", GONE))
        self.variable("BootNext", b"\x51\0")
        for words in ("list -v", "show 50", "show 51", "show 52", "show 55", "next", "vars", "export"):
            self.call(*words.split())
        self.call("check", status=1)
        self.call("copy", "55", "--dry-run")
        self.call("path", "decode", NVME.hex() + machine.file_path("\\a").hex() + "00")


class Changing(Story):
    def setUp(self):
        super().setUp()
        self.take("q35")
        os.makedirs(os.path.join(self.root, "boot/efi/EFI"))
        os.makedirs(os.path.join(self.root, "proc/self"), exist_ok=True)
        with open(os.path.join(self.root, "proc/self/mountinfo"), "w", encoding="ascii") as file:
            file.write("22 1 8:1 / /boot/efi rw,relatime - vfat /dev/sda1 rw\n")
        with open(os.path.join(self.root, "boot/efi/EFI/a.efi"), "w", encoding="ascii") as file:
            file.write("MZ")

    def mark(self):
        """A file with the optional data of options that firmware made itself."""
        path = os.path.join(self.place, "mark")
        with open(path, "wb") as file:
            file.write(bytes.fromhex("4eac0881119f594d850ee21a522c59b2"))
        return path

    def test_options(self):
        made = self.call("create", "--desc", "Debian", "--disk", "/boot/efi/EFI/a.efi")["option"]
        self.call("create", "--desc", "Debian", "--disk", "sda1", "--file", "\\EFI\\a.efi", "--if-absent")
        self.call("create", "--desc", "None", "--disk", "sda1", "--dry-run")
        self.call("find", "sda1")
        self.call("set", made, "--disk", "/boot/efi/EFI/a.efi")
        self.call("set", made, "--replace-disk", "sdb1", "--optdata-text", "quiet")
        self.call("rename", made, "Other")
        copied = self.call("copy", made, "--first")["option"]
        self.call("set", made, "--optdata-file", self.mark())
        self.call("copy", made)
        for words in (("order", "set", made), ("order", "insert", copied), ("order", "clear"), ("next", made)):
            self.call(*words)
        for kind in ("current", "next"):
            self.variable("Boot" + kind.title(), b"\x42\0", 6 if kind == "current" else 7)
        self.variable("BootOrder", b"\x42\0")
        self.call("create", "--desc", "x", "--path-hex", "7fff0400", "--number", "42", "--force")
        self.call("remove", "42")
        self.call("next", "--clear")

    def test_repairs_and_exchange(self):
        self.variable("Boot0053", machine.load_option("d", GONE))
        self.variable("BootNext", b"\x53\0")
        text = os.path.join(self.place, "boot.txt")
        self.call("export", text)
        self.call("check", "--fix")
        self.call("import", text)
        self.call("edit", EDITOR="true")
        self.call("edit", EDITOR="sed -i s/UiApp/Setup/")

    def test_settings(self):
        for words in (("timeout", "5"), ("timeout",), ("timeout", "--clear"), ("time", "--set", "2031-02-03T04:05:06"),
                      ("time", "--wakeup", "--set", "2099-02-03T04:05:06"), ("time", "--wakeup"),
                      ("time", "--wakeup", "--clear"), ("reset", "--dry-run"), ("reset", "--warm")):
            self.call(*words)

    def test_paths(self):
        self.call("path", "encode", "/dev/sda1", "--file", "\\a.efi")
        self.call("path", "encode", "/PciRoot(0x0)/Pci(0x1f,0x2)")

    def test_machines(self):
        self.call("machine", "capture", os.path.join(self.place, "copy"))
        for words in (("machine", "boot", self.root), ("machine", "boot", self.root, "--dry-run")):
            done = subprocess.run([TOOL, *words, "--json"], capture_output=True, text=True, check=False)
            self.judged(words, done, 0, None)

    def test_watch(self):
        with subprocess.Popen([TOOL, "--root", self.root, "watch", "--json"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True) as watching:
            watching.stderr.readline()
            self.call("timeout", "7")
            self.assertEqual(schemas.check("watch", json.loads(watching.stdout.readline())), [])
            watching.send_signal(signal.SIGTERM)


class Failing(Story):
    def test_says_what_failed(self):
        self.take("pc")
        error = self.fails("show", "no such thing")
        self.assertEqual((error["reason"], error["failed"]), ('no option is named "no such thing"', None))
        self.assertIn("An option is named by its number", error["advice"][0])
        error = self.fails("list", "--nonsense", status=2)
        self.assertEqual(error["exit_status"], 2)
        self.assertIn("--nonsense", error["reason"])
        self.assertEqual(self.fails("path", "encode", "/Nonsense(1)")["done"], [])

    def test_says_what_was_done(self):
        self.take("pc")
        error = self.fails("remove", "Boot0001", "Boot0002", LD_PRELOAD=FAILING, FAIL="unlink:Boot0002:5:1:1")
        told = {"action": "delete", "variable": "Boot0001", "text": "Boot0001"}
        self.assertEqual(error["done"], [told])
        self.assertEqual(error["failed"], {key: text.replace("1", "2") for key, text in told.items()})
        error = self.fails("create", "--desc", "x", "--path-hex", "7fff0400", LD_PRELOAD=FAILING,
                           FAIL="create:.hwplat:5:2:2")
        self.assertEqual((error["done"], error["failed"]["variable"]), ([], "BootOrder"))


class Everything(unittest.TestCase):
    def test_each_member_was_seen(self):
        self.assertEqual([place for place in schemas.unseen() if place not in ELSEWHERE], [])


def load_tests(loader, _, __):
    cases = (Showing, Changing, Failing, Everything)
    return unittest.TestSuite(loader.loadTestsFromTestCase(each) for each in cases)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
