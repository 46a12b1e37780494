# SPDX-License-Identifier: MIT
"""The classes of disks of the chipset pc."""
from .classes import try_all


def run(lab):
    try_all(lab, "qemu_pc")
