# SPDX-License-Identifier: MIT
"""The text of the machine with the chipset q35, as a guest sees it."""
from .captured import compare


def run(lab):
    compare(lab, "qemu_q35")
