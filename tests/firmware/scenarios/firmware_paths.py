# SPDX-License-Identifier: MIT
"""The paths of the options that the firmware made for its disks, against what the device tree says of the same disks."""
from machine import nvme_disk, sata_disk, scsi_disk

from . import common

NODE_SCSI = (0x03, 0x02)
NODE_SATA = (0x03, 0x12)
NODE_NVME = (0x03, 0x17)
NODE_HARD_DRIVE = (0x04, 0x01)
NODE_END = (0x7F, 0xFF)


def nodes(path):
    """The packed path's nodes, each with its type, subtype and data."""
    data = bytes.fromhex(path)
    found = []
    while data:
        size = int.from_bytes(data[2:4], "little")
        assert 4 <= size <= len(data), f"the path {path} has a node of {size} bytes"
        found.append(((data[0], data[1]), data[4:size]))
        data = data[size:]
    return found


def firmware_made(start):
    """The paths of the firmware's options for disks, by the nodes that lead to the controller."""
    found = {}
    for option in common.options(start).values():
        path = nodes(option["path"])
        if option["description"].startswith("UEFI ") and path[-1][0] == NODE_END:
            controller, device = tuple(path[:-2]), path[-2]
            found.setdefault(controller, []).append(device)
    return found


def tree_path(start, volume):
    """The nodes of a slice's full form, in front of its partition."""
    change = start.ovra(f"create --dry-run --desc x --disk {volume} --full")["changes"][0]
    path = nodes(change["path"])
    common.expect("the path's last nodes", [kind for kind, _ in path[-2:]], [NODE_HARD_DRIVE, NODE_END])
    return tuple(path[:-3]), path[-3]


def run(lab):
    machine = lab.machine(
        sata_disk(lab.image("gpt"), 0, index=1), sata_disk(lab.image("gpt2"), 3, index=2),
        scsi_disk(lab.image("gpt3"), 5, 2, 4, index=3), scsi_disk(lab.image("mbr"), 2, 0, 6, index=4, bridge=True),
        nvme_disk(lab.image("gpt3"), 5, index=5))
    start = machine.start().wait_for_guest()
    by_firmware = firmware_made(start)
    common.expect("disks that the firmware made options for", sum(map(len, by_firmware.values())), 5)

    compared = 0
    for disk in start.ovra("disks")["disks"]:
        volume = disk["volumes"][0]["name"] if disk["volumes"][0]["kind"] == "slice" else f"{disk['drive']}p1"
        if "/blkdev@" in disk["path"]:
            # The tree has no node for NVMe disks: only the short form. The firmware names the same function.
            slot = int(disk["controller"].rsplit("@", 1)[1], 16)
            functions = [controller[-1] for controller, devices in by_firmware.items() if devices[0][0] == NODE_NVME]
            common.expect("the NVMe controller", functions, [((0x01, 0x01), bytes([0, slot]))])
            compared += 1
            continue
        controller, device = tree_path(start, volume)
        assert controller in by_firmware, f"{disk['path']}: {controller} is none of {list(by_firmware)}"
        if device[0] == NODE_SATA:
            # Port and LUN are the same. For a port without a multiplier the tree says 0x8000 (directly attached), as
            # the UEFI specification has it since 2.0, and this firmware 0xffff, as it has had it since 2.5.
            common.expect("the port multiplier", device[1][2:4], b"\x00\x80")
            same = [kind_data for kind_data in by_firmware[controller]
                    if kind_data[0] == NODE_SATA and kind_data[1][:2] + kind_data[1][4:] == device[1][:2] + device[1][4:]]
            common.expect(f"{disk['path']} among the firmware's", len(same), 1)
            common.expect("the firmware's port multiplier", same[0][1][2:4], b"\xff\xff")
        else:
            common.expect(f"{disk['path']} is a SCSI disk", device[0], NODE_SCSI)
            common.expect(f"{disk['path']} among the firmware's", by_firmware[controller], [device])
        compared += 1
    common.expect("disks compared", compared, 5)
