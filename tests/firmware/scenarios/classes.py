# SPDX-License-Identifier: MIT
"""Each class of disks in its short and in its full form: options that are written on the host into the machine's variables,
for disks that the host knows from a text of tests/machines/. A start tries many."""
import json
import re
from pathlib import Path

import disks
import results
from classes import MACHINES, arguments

from . import common
from .firmware_paths import NODE_HARD_DRIVE, nodes

TEXTS = Path(__file__).parents[2] / "machines"
PROGRAM = r"\T.EFI"
LIMIT = 250  # seconds for one start that tries all options


class Prepared:
    """The machine's folder on the host, and the machine with those of its disks that are in its order, or the others."""

    def __init__(self, lab, name, ordered):
        self.lab = lab
        self.chipset, classes = MACHINES[name]
        self.root = lab.folder / name
        text = TEXTS / f"{name}.machine"
        if not self.root.exists():
            lab.host("lay_out", text, self.root)
        # In the order of the classes.
        lines = re.findall(r"^image dev/(\S+) (\S+) \d+ (\d+)\+", text.read_text(), re.MULTILINE)
        common.expect(f"images of {name}", len(lines), len(classes))
        taken = [(disk, line) for disk, line in zip(classes, lines) if disk.ordered == ordered]
        self.classes = [disk for disk, _ in taken]
        self.names = [kernel_name for _, (kernel_name, _, _) in taken]
        for _, (kernel_name, table, first) in taken:
            self.put_program(kernel_name, 4096 if table.endswith("/4096") else 512, int(first))
        images = [self.root / "dev" / each for each in self.names]
        self.machine = lab.machine(*arguments(self.chipset, self.classes, images, ordered), chipset=self.chipset)

    def put_program(self, kernel_name, block, first):
        contents = disks.small_file_system(self.lab.image("host/started.efi"), block, self.lab.folder)
        with open(self.root / "dev" / kernel_name, "r+b") as image:
            image.seek(first * block)
            image.write(contents)

    def ovra(self, *words):
        text = self.lab.host("ovra", "--root", self.root, "--vars", self.machine.variables, *words, "--json")
        return json.loads(text)

    def create(self, description, volume, *more):
        """Makes an option; its number and path."""
        made = self.ovra("create", "--desc", description, "--disk", volume, "--file", PROGRAM,
                         "--optdata-text", description, *more)["changes"][0]
        return int(made["variable"][4:], 16), bytes.fromhex(made["path"])


def started_by(console):
    """What the program said: the path of its partition, by the number of the option and the optional data."""
    found = re.findall(r"<started ([0-9a-f]{4}) ([^\n]*)\n([0-9a-f\s]+)>", console)
    return {(int(number, 16), data.strip()): bytes.fromhex("".join(path.split())) for number, data, path in found}


def without_file(path):
    """The nodes in front of the partition, and with it."""
    *before, partition, _, end = nodes(path)
    common.expect("the node of the partition", partition[:2], NODE_HARD_DRIVE)
    return b"".join([*before, end]), b"".join([*before, partition, end])


class Tried:
    """The options of a class, and what the firmware did with them."""

    def __init__(self, prepared, drives, disk, kernel_name):
        self.disk = disk
        self.prepared = prepared
        drive = next(each for each in drives if each["kernel_name"] == kernel_name)
        self.volume = next(each["name"] for each in drive["volumes"] if each["start"])
        self.full = prepared.create(f"full-{kernel_name}", self.volume, "--full")
        self.short = prepared.create(f"short-{kernel_name}", self.volume)
        self.kernel_name = kernel_name
        self.hardware, self.partition = without_file(self.full[1])

    def row(self, firmware, started, own):
        """What is said of it. An option that started another disk fails."""
        by_full = started.get((self.full[0], f"full-{self.kernel_name}"))
        by_short = started.get((self.short[0], f"short-{self.kernel_name}"))
        if by_full is not None:
            common.expect(f"the full form of {self.disk.name} started", by_full.hex(), self.partition.hex())
        if by_short is not None:
            common.expect(f"the short form of {self.disk.name} started", nodes(by_short)[-2], nodes(self.partition)[-2])
        paths = self.prepared.ovra("path", "decode", self.hardware.hex())["instances"][0]
        return {
            "class": self.disk.name, "firmware": firmware,
            "short": "starts" if by_short is not None else "does not start",
            "full": "starts" if by_full is not None else "does not start",
            "own": self.own(by_short, own),
            "path": paths.get("uefi_text", paths["device_path"]).lstrip("/"),
            "note": self.disk.remark,
        }  # fmt: skip

    def own(self, partition, own):
        """What the firmware's option for the disk is against the full form."""
        if self.hardware in own:
            return "the same"
        if partition is None:
            return "none"
        *before, _, end = nodes(partition)
        path = b"".join([*before, end])
        text = self.prepared.ovra("path", "decode", path.hex())["instances"][0]
        said = text.get("uefi_text", text["device_path"]).lstrip("/")
        if path == self.hardware:
            return "none; it names the disk the same"
        return said if path in own else f"none; it names the disk {said}"


def wait_until_tried(start, numbers):
    """Waits until the firmware is done with all these options. It passes over the short form of a disk that it does not find
    when the machine has an order, and starts its shell."""

    def all_tried():
        text = start.console_text()
        failed = {int(number, 16) for number in re.findall(r"BdsDxe: failed to (?:load|start) Boot([0-9A-F]{4})", text)}
        tried = failed | {number for number, _ in started_by(text)} >= numbers
        return tried or re.search(r'BdsDxe: starting Boot[0-9A-F]{4} "EFI Internal Shell"', text)

    start.wait_until("end of all options", LIMIT, all_tried)


def try_disks(lab, name, ordered):
    """The rows of the disks that are in the machine's order, or of the others."""
    prepared = Prepared(lab, name, ordered)
    drives = prepared.ovra("disks")["disks"]
    tried = [Tried(prepared, drives, disk, kernel_name) for disk, kernel_name in zip(prepared.classes, prepared.names)]
    numbers = [*(each.full[0] for each in tried), *(each.short[0] for each in tried)]
    prepared.ovra("order", "set", ",".join(map(common.name, numbers)))
    start = prepared.machine.start()
    wait_until_tried(start, set(numbers))
    start.cut_power()
    started = started_by(start.console_text())
    own = {bytes.fromhex(option["path"]) for option in prepared.ovra("list")["options"]
           if option["description"].startswith("UEFI ")}
    return [each.row(f"OVMF, {prepared.chipset}", started, own) for each in tried]


def try_all(lab, name):
    kinds = sorted({disk.ordered for disk in MACHINES[name][1]})
    rows = [row for ordered in kinds for row in try_disks(lab, name, ordered)]
    results.hold(rows[0]["firmware"], rows, lab.record)
