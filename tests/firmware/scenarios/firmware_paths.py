# SPDX-License-Identifier: MIT
"""The paths of the options that the firmware made for its disks, against the full form that the command makes."""
from machine import nvme_disk, sata_disk, scsi_disk, usb_disk, virtio_disk

from . import common

NODE_HARD_DRIVE = bytes([0x04, 0x01])
END = bytes([0x7F, 0xFF, 0x04, 0x00])


def nodes(path):
    """The packed path's nodes."""
    found = []
    while path:
        size = int.from_bytes(path[2:4], "little")
        assert 4 <= size <= len(path), f"the path {path.hex()} has a node of {size} bytes"
        found.append(path[:size])
        path = path[size:]
    return found


def firmware_made(start):
    """The firmware's options for disks: path to number."""
    return {bytes.fromhex(option["path"]): name for name, option in common.options(start).items()
            if option["description"].startswith("UEFI ")}


def full_form(start, volume):
    """The full form of a slice or partition, without the nodes of this and of the file on it."""
    change = start.ovra(f"create --dry-run --desc x --disk {volume} --file x --full")["changes"][0]
    *hardware, partition, _, end = nodes(bytes.fromhex(change["path"]))
    common.expect("the nodes behind the hardware", (partition[:2], end), (NODE_HARD_DRIVE, END))
    return b"".join([*hardware, end])


def compare(start, count):
    """Each disk has the path of an option of the firmware's, byte for byte, and is found by it."""
    by_firmware = firmware_made(start)
    common.expect("disks that the firmware made options for", len(by_firmware), count)
    compared = {}
    for disk in start.ovra("disks")["disks"]:
        volume = next(volume for volume in disk["volumes"] if volume["start"])
        path = full_form(start, volume["name"])
        assert path in by_firmware, f"{disk['path']}: {path.hex()} is none of {[each.hex() for each in by_firmware]}"
        common.expect(f"options of {disk['drive']}", start.ovra(f"find {disk['kernel_name']}")["options"],
                      [by_firmware[path]])
        compared[path] = disk["drive"]
    common.expect("disks compared", len(compared), count)


def run(lab):
    machine = lab.machine(
        sata_disk(lab.image("gpt"), 0, index=1), sata_disk(lab.image("gpt2"), 3, index=2),
        scsi_disk(lab.image("gpt3"), 5, 2, 4, index=3), scsi_disk(lab.image("mbr"), 2, 0, 6, index=4, bridge=True),
        nvme_disk(lab.image("gpt3"), 5, index=5))
    start = machine.start().wait_for_guest()
    compare(start, 5)
    machine.off()

    machine = lab.machine(virtio_disk(lab.image("gpt"), 3), usb_disk(lab.image("gpt2"), 4))
    start = machine.start().wait_for_guest()
    start.load_more_modules()
    compare(start, 2)
