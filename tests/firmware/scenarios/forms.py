# SPDX-License-Identifier: MIT
"""Each form of a disk's path, on each kind of disk: the firmware finds the disk that was meant."""
import re

from disks import GUIDS, SIGNATURE
from machine import nvme_disk, sata_disk, scsi_disk

from . import common

SCSI_SLOT = 4
NVME_SLOT = 5


def drive_on(start, place):
    """The name of the drive whose place in the device tree `place` finds."""
    names = [disk["drive"] for disk in start.ovra("disks")["disks"] if re.search(place, disk["path"])]
    assert len(names) == 1, f"drives at {place}: {names}"
    return names[0]


def gpt(image):
    """The firmware's text for the first entry of the image's table."""
    return f"HD(1,GPT,{GUIDS[image].upper()},"


def run(lab):
    machine = lab.machine(
        sata_disk(lab.image("gpt"), 0, index=1), sata_disk(lab.image("mbr"), 2, index=2),
        scsi_disk(lab.image("gpt2"), 3, 1, SCSI_SLOT, index=3), nvme_disk(lab.image("gpt3"), NVME_SLOT, index=4))
    start = machine.start().wait_for_guest()
    scsi = drive_on(start, r"@4/sd@3,1$")
    made = []

    def make(description, disk, path, *more):
        made.append((common.create(start, description, disk, *more), description, path))

    make("scsi-full", f"{scsi}s0", f"PciRoot(0x0)/Pci(0x4,0x0)/Scsi(0x3,0x1)/{gpt('gpt2')}", "--full")
    make("scsi-short", f"{scsi}s0", gpt("gpt2"))
    make("sata-short", drive_on(start, r"@1f,2/disk@0,0$") + "s0", gpt("gpt"))
    make("mbr-short", drive_on(start, r"@1f,2/disk@2,0$") + "p1", f"HD(1,MBR,0x{SIGNATURE:08X},")
    # BootNext starts an inactive option too.
    start.output(f"ovra set {common.name(made[-1][0])} --inactive")
    make("nvme-short", drive_on(start, r"@5/blkdev@") + "s0", gpt("gpt3"))

    for number, description, _ in made:
        start.output(f"ovra next {common.name(number)}")
        common.reset(start)
        start = machine.start().wait_for_guest()
        common.expect_started(start, number, description)

    for number, description, path in made:
        started = re.search(rf'starting {common.name(number)} "{description}" from (\S+)', machine.console_text())
        assert started and started.group(1).startswith(path), f"{description}: {started and started.group(1)}, not {path}"
