#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: freeing.py VALGRIND PROGRAM

What it costs to give back tracked blocks one by one, in instructions, which do not depend on the machine's load: 60 times
as many blocks may cost 70 times as much.
"""
import re
import subprocess
import sys
import unittest

VALGRIND, PROGRAM = sys.argv[1:3]
FEW, MANY, MOST = 1000, 60000, 70


def instructions(blocks, way):
    command = [VALGRIND, "--tool=callgrind", "--callgrind-out-file=/dev/null", PROGRAM, str(blocks), way]
    run = subprocess.run(command, capture_output=True, text=True, check=False)
    if run.returncode != 0:
        raise AssertionError(run.stderr)
    return int(re.search(r"Collected : (\d+)", run.stderr).group(1))


class Freeing(unittest.TestCase):
    def test_sixty_thousand_blocks_cost_as_much_each_as_a_thousand(self):
        kept = {blocks: instructions(blocks, "keep") for blocks in (FEW, MANY)}
        for way in ("first_to_last", "last_to_first", "random", "turns"):
            with self.subTest(way):
                few, many = (instructions(blocks, way) - kept[blocks] for blocks in (FEW, MANY))
                print(f"{way}: {few / FEW:.0f} instructions each of {FEW}, {many / MANY:.0f} each of {MANY}")
                self.assertGreater(few, 0)
                self.assertLessEqual(many, MOST * few)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
