#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: help_test.py TOOL CAPTURED_MACHINES MAN_PAGE

The help of every verb ends in an example that works, and the man page has every option that help names.
"""
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../abi"))
import machine  # noqa: E402

TOOL, CAPTURED, MAN = map(os.path.abspath, sys.argv[1:4])
MEMORY = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None


def helped(*words):
    return subprocess.run([TOOL, *words, "--help"], capture_output=True, text=True, check=True).stdout


VERBS = re.findall(r"^  (\w+) ", helped().split("\nSubcommands:\n")[1], re.MULTILINE)


class Help(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory(dir=MEMORY)
        self.addCleanup(place.cleanup)
        self.place = place.name
        self.root = os.path.join(place.name, "root")
        subprocess.run(["cp", "-a", "--sparse=always", os.path.join(CAPTURED, "q35"), self.root], check=True)
        for name, text in (("layout.txt", "file sys/kernel/x 1\n"), ("nano", "#!/bin/sh\n"), ("boot.txt", "")):
            with open(os.path.join(self.place, name), "w", encoding="ascii") as file:
                file.write(text)
        os.chmod(os.path.join(self.place, "nano"), 0o755)
        for number, description in (0x60, "Debian"), (0x61, "Windows Boot Manager"):
            path = os.path.join(self.root, f"sys/firmware/efi/efivars/Boot{number:04X}-{machine.GLOBAL}")
            with open(path, "wb") as file:
                file.write(b"\7\0\0\0" + machine.load_option(description, machine.file_path("\\a.efi")))
        for words in ("order first Debian", "export boot.txt"):
            self.assertEqual(self.ran("ovra " + words).returncode, 0)
        self.variables = os.path.join(self.root, "sys/firmware/efi/efivars")
        shutil.copytree(self.variables, os.path.join(self.place, "variables"))

    def ran(self, line):
        path = f"{self.place}:{os.path.dirname(TOOL)}:/usr/bin:/bin"
        line = line.replace("/tmp/machine", self.place + "/made")
        if "machine" in line:  # names the folder itself
            return subprocess.run(["bash", "-c", line], cwd=self.place, capture_output=True, text=True, check=False,
                                  env={"PATH": path})
        with subprocess.Popen(["bash", "-c", "exec " + line if "=" not in line.split()[0] else line], cwd=self.place,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              env={"PATH": path, "HWPLAT_ROOT": self.root}) as process:
            if shlex.split(line)[1] == "watch":
                self.assertIn("Watching", process.stderr.readline())
                process.send_signal(signal.SIGTERM)
            out, err = process.communicate()
        return subprocess.CompletedProcess(line, process.returncode, out, err)

    def test_ends_in_an_example_that_works(self):
        self.assertGreater(len(VERBS), 20)
        for verb in VERBS:
            examples = re.findall(r"^Example: (.*)$", helped(verb), re.MULTILINE)
            if verb == "machine":
                examples += [line for each in ("create", "boot", "capture")
                             for line in re.findall(r"^Example: (.*)$", helped(verb, each), re.MULTILINE)]
                self.assertGreaterEqual(len(examples), 3)
            self.assertNotEqual(examples, [], verb)
            for line in examples:
                self.assertIn(f"ovra {verb}", line)
                if line.startswith("ovra machine capture"):
                    shutil.rmtree(self.place + "/made")
                    line = line.replace("ovra", f"ovra --root {self.root}", 1)
                shutil.rmtree(self.variables)
                shutil.copytree(os.path.join(self.place, "variables"), self.variables)
                done = self.ran(line)
                self.assertEqual((done.returncode, verb), (0, verb), (line, done.stdout, done.stderr))

    def test_man_page_has_every_option(self):
        with open(MAN, encoding="utf-8") as file:
            page = file.read()
        for verb in VERBS:
            help_of_it = helped(verb)
            for short, option in re.findall(r"^  (?:-(\w),)?--([\w-]+)", help_of_it, re.MULTILINE):
                if option != "help":
                    self.assertRegex(page, rf"Fl {short}\b" if short else rf"Fl -{option}\b", verb)
            self.assertIn(f"\n.Cm {verb}", page)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
