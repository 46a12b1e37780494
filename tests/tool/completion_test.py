#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: completion_test.py TOOL SCRIPTS

A shell at a terminal completes words of the command, and what runs then is what was meant: also where options have
descriptions that a shell would execute. With bash; with zsh and fish whether they can read their scripts.
"""
import os
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../abi"))
import machine  # noqa: E402

TOOL, SCRIPTS = map(os.path.abspath, sys.argv[1:3])
HOSTILE = ["h0 $(touch touched)", "h1 `touch touched`", "h2 it's \"quoted\"", "h3 !!;touch touched|x&", "h4 a\nb\tc",
           "h5 \u202e\x1b[31m", "h6 süß", "h7 $HOME\\n ~ * {a,b}", "h8: a=b@c #d", "h9  two  blanks "]


class Bash:
    """An interactive bash, as somebody types at it."""

    def __init__(self, folder):
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(folder)
            os.execve("/bin/bash", ["bash", "--norc", "--noprofile", "-i"],
                      {"PATH": os.path.dirname(TOOL) + ":/usr/bin:/bin", "TERM": "dumb", "PS1": "ready%", "PS2": "waits>",
                       "HOME": folder, "LC_ALL": "C.UTF-8", "HISTFILE": "/dev/null"})
        self.until("ready%")
        self.run("bind 'set enable-bracketed-paste off'; bind 'set bell-style none'; stty -echo cols 500")
        self.run(f"source {SCRIPTS}/ovra.bash")

    def until(self, *ends, seconds=20):
        text = ""
        limit = time.monotonic() + seconds
        while not text.endswith(ends):
            ready = select.select([self.terminal], [], [], max(0, limit - time.monotonic()))[0]
            if not ready:
                raise AssertionError(f"no {ends!r} in {text!r}")
            text += os.read(self.terminal, 65536).decode("utf-8", "replace")
        return text

    def run(self, line):
        os.write(self.terminal, (line + "\n").encode())
        return self.until("ready%")

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.process, 0)


class Completed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        place = tempfile.TemporaryDirectory()
        cls.addClassCleanup(place.cleanup)
        cls.folder = place.name
        there = machine.Machine(os.path.join(place.name, "machine"))
        for number, description in enumerate(HOSTILE):
            there.write(f"Boot{number:04X}", machine.load_option(description, machine.file_path("\\a.efi")))
        there.write("Driver0001", machine.load_option("one driver", machine.file_path("\\a.efi")))
        there.write("BootOrder", b"".join(number.to_bytes(2, "little") for number in range(len(HOSTILE))))
        cls.bash = Bash(place.name)
        cls.addClassCleanup(cls.bash.close)

    def shown(self, typed):
        """The option that is shown once the line, with words completed, is run."""
        text = self.bash.run(f"ovra --root machine {typed}")
        found = re.search(r"Option +(Boot\w{4})", text)
        return found.group(1) if found else text

    def test_descriptions_are_completed_and_not_executed(self):
        for number, description in enumerate(HOSTILE):
            for begun in (description[:2], "'" + description[:2], '"' + description[:2], '"' + description[:3]):
                self.assertEqual(self.shown(f"show {begun}\t"), f"Boot{number:04X}", (begun, description))
        for begun in ("h8:", "h8\\:\\ a=", "h8:\\ a=b@c", "'h8: a=", "\"h8: a=b@"):
            self.assertEqual(self.shown(f"show {begun}\t"), "Boot0008", begun)
        self.assertFalse(os.path.exists(os.path.join(self.folder, "touched")))

    # Bash would drop one of two quotes, and run what stands behind them.
    def test_what_must_leave_its_quote_at_once_is_not_completed(self):
        there = machine.Machine(os.path.join(self.folder, "other"))
        for number, start in enumerate(["!", "De\u200b", "Win\x7f", "\x01", "'", "x!", "Hi!"]):
            description = start + ";touch touched;#"
            there.write(f"Boot{number:04X}", machine.load_option(description, machine.file_path("\\a.efi")))
        for begun in ("\"!", "De\"", "\"De", "Win'", "'Win", "\"\x16\x01", "'", "\"", "x\"", "x'", "\"x\t!", "Hi\"", "Hi'"):
            os.write(self.bash.terminal, f"ovra --root other show {begun}\t\n".encode())
            if self.bash.until("ready%", "waits>").endswith("waits>"):
                self.bash.run("\"" if "\"" in begun else "'")
            self.assertFalse(os.path.exists(os.path.join(self.folder, "touched")), begun)

    def test_verbs_options_and_names(self):
        self.assertEqual(self.shown("sho\tBoot0003\t"), "Boot0003")
        self.assertEqual(self.shown("show @fir\t"), "Boot0000")
        self.assertIn("Driver0001", self.bash.run("ovra --root machine show --kin\tdri\tone\t"))
        self.assertIn('"@ne"', self.bash.run("ovra --root machine show @ne\t"))
        self.assertIn("Boot0002 Boot0001", self.bash.run("ovra --root mach\t order se\tBoot0002,Boot0001\t --dry-r\t"))
        self.assertIn('"format"', self.bash.run("ovra --root=machine lis\t--js\t"))

    def test_scripts_of_other_shells_are_read(self):
        for shell, script in (("zsh", "_ovra"), ("fish", "ovra.fish")):
            if shutil.which(shell):
                subprocess.run([shell, "-n", os.path.join(SCRIPTS, script)], check=True)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
