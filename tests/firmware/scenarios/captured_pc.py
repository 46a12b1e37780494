# SPDX-License-Identifier: MIT
"""The text of the machine with the chipset pc, as a guest sees it."""
from .captured import compare


def run(lab):
    compare(lab, "qemu_pc")
