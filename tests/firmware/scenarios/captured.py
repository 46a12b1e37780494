# SPDX-License-Identifier: MIT
"""The texts of tests/machines/ of the emulator's machines, against what a guest on them sees."""
import re
import time

import initramfs
from classes import MACHINES, arguments
from sysfs_text import DUMP, entries

from . import common
from .classes import TEXTS

# Guest: lets the drivers have the functions one by one, and waits after each until no more devices come. The channels of an
# IDE function are off until the firmware has used them, and for a kernel that the emulator gives it it does not.
PROBE = (
    "for list in more rare; do while read -r module; do insmod /lib/modules/$module; done </lib/modules/$list; done; "
    "count() { ls /sys/block /sys/bus/usb/devices /sys/bus/scsi/devices | wc -l; }; "
    "for place in /sys/bus/pci/devices/*; do "
    r"case $(cat $place/class) in 0x0101*) "
    r"printf '\000\200\000\200' | dd of=$place/config bs=4 seek=16 conv=notrunc;; esac; "
    "echo ${place##*/} >/sys/bus/pci/drivers_probe; "
    "case $(cat $place/class) in 0x0101*) sleep 10;; 0x01*|0x0c03*|0x0805*) ;; *) continue;; esac; "
    "seen=; while [ \"$seen\" != $(count) ]; do seen=$(count); sleep 2; done; done"
)


def machine_of(lab, name):
    """Lays out the images alone, and makes the machine that starts a kernel with them."""
    chipset, classes = MACHINES[name]
    text = lab.folder / f"{name}.images"
    text.write_text("".join(f"image dev/disk{number} {disk.image}\n" for number, disk in enumerate(classes)))
    lab.host("lay_out", text, lab.folder / name)
    devices = arguments(chipset, classes, [lab.folder / name / f"dev/disk{number}" for number in range(len(classes))])
    kernel = ["-kernel", f"/boot/vmlinuz-{initramfs.newest_kernel()}", "-initrd", str(lab.image("initramfs")),
              "-append", "console=ttyS0 quiet panic=-1 one_by_one"]
    return lab.machine(*devices, kernel, chipset=chipset)


def named_images(start):
    """The kernel's names of the disks, by the number of the image, which the GUID of its partition has."""
    named = {}
    for disk in start.ovra("disks")["disks"]:
        guid = next(volume["guid"] for volume in disk["volumes"] if volume["start"])
        named[int(guid[:8], 16) - 1] = disk["kernel_name"]
    return named


def captured(lab, name, recorded):
    """The lines that the guest gives. The disks of one ATA controller are named as they happen to come: they get the
    recorded names, of which there may be none."""
    start = machine_of(lab, name).start()
    start.wait_for_guest(limit=150)
    start.output(PROBE, 200)
    named = named_images(start)
    deadline = time.monotonic() + 60  # a busy host makes a slow guest
    classes = MACHINES[name][1]
    while len(named) < len(classes) and time.monotonic() < deadline:
        named = named_images(start)
    missing = [disk.name for number, disk in enumerate(classes) if number not in named]
    common.expect("disks that the guest does not see", missing, [])
    names = {named[number]: known for number, known in enumerate(recorded) if known.startswith("sd")}
    dump = re.sub(r"\bsd[a-z]+\b", lambda found: names.get(found[0], found[0]), start.output(DUMP))
    named = {number: names.get(kernel_name, kernel_name) for number, kernel_name in named.items()}
    lab.made.off()
    return entries(dump, {named[number]: disk.image for number, disk in enumerate(classes)})


def compare(lab, name):
    file = TEXTS / f"{name}.machine"
    text = file.read_text() if file.exists() else f"# {name}\n== disks\n"
    before, mark, sections = text.partition("== disks\n")
    remarks = [line for line in before.splitlines() if line.startswith("#")]
    seen = captured(lab, name, re.findall(r"^image dev/(\S+)", before, re.MULTILINE))
    if lab.record:
        file.write_text("\n".join([*remarks, *seen]) + "\n" + mark + sections)
    else:
        common.expect(f"the entries of {name}", before.splitlines()[len(remarks):], seen)
