# SPDX-License-Identifier: MIT
"""Machines with another firmware or another processor than a PC with EDK II. They start from options that the command
wrote on the host into the file where the firmware keeps its variables.
    other.py packages                            fails with what is missing on this machine
    other.py MACHINE OVRA PROGRAM [--record]     lets MACHINE start PROGRAM, an EFI program, from options written by OVRA
"""
import json
import re
import shutil
import sys
import tempfile
from pathlib import Path

import disks
import results
from machine import Failure, Start
from run import end_in_time

PARTITION = f"HD(1,GPT,{disks.GUIDS['gpt']},{disks.START:#x},{disks.SIZE:#x})"
FILE = r"\EFI\T\S.EFI"
VARIABLES = "ubootefi.var"
LIMIT = 120  # seconds for a step; the processor is emulated

# Where each Debian package is seen.
PACKAGES = {
    "qemu-system-x86": lambda: shutil.which("qemu-system-x86_64"),
    "qemu-system-arm": lambda: shutil.which("qemu-system-aarch64"),
    "u-boot-qemu": lambda: Path(UBOOT["uboot_x86_64"].firmware).exists(),
    "qemu-efi-aarch64": lambda: Path(AAVMF_CODE).exists(),
    "clang": lambda: shutil.which("clang"),
    "lld": lambda: shutil.which("ld.lld"),
    "mtools": lambda: shutil.which("mformat"),
    "gdisk": lambda: shutil.which("sgdisk", path=disks.PATH),
}

AAVMF_CODE = "/usr/share/AAVMF/AAVMF_CODE.fd"
AAVMF_VARIABLES = "/usr/share/AAVMF/AAVMF_VARS.fd"

ARM = ["-machine", "virt", "-cpu", "cortex-a57"]
VIRTIO = "virtio-blk-pci,addr=1"


class Machine:
    """A machine with one disk, which holds the program."""

    def __init__(self, folder, emulator, arguments, device, program):
        self.folder = Path(folder)
        self.emulator = emulator
        self.disk = self.folder / "disk"
        partition = self.folder / "partition"
        with open(partition, "wb") as file:
            file.truncate(disks.SIZE * disks.BLOCK)
        disks.run("mformat", "-i", partition, "-T", str(disks.SIZE), "-h", "16", "-s", "32", "-c", "4", "::")
        disks.run("mmd", "-i", partition, "::/EFI", "::/EFI/T")
        disks.run("mcopy", "-i", partition, program, "::/EFI/T/S.EFI")
        disks.disk(self.disk, partition, disks.GUIDS["gpt"])
        self.arguments = [
            *arguments, "-accel", "tcg", "-m", "512", "-smp", "1",
            "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot",
            "-drive", f"if=none,id=disk,format=raw,file={self.disk}", "-device", f"{device},drive=disk",
        ]  # fmt: skip
        self.starts = []

    def start(self):
        self.starts.append(Start(self, len(self.starts) + 1, self.emulator))
        return self.starts[-1]

    def off(self):
        for start in self.starts:
            start.cut_power()

    def copy_from_partition(self, name, file):
        disks.run("mcopy", "-n", "-o", "-i", f"{self.disk}@@{disks.START * disks.BLOCK}", f"::/{name}", file)

    def copy_to_partition(self, file, name):
        disks.run("mcopy", "-o", "-i", f"{self.disk}@@{disks.START * disks.BLOCK}", file, f"::/{name}")


class Host:
    """The command on the host, on a file of variables."""

    def __init__(self, command, variables):
        self.words = [command, "--vars", variables]

    def ovra(self, *words):
        return json.loads(disks.run(*self.words, *words, "--json"))

    def create(self, description, path, *more):
        """Makes an option with its description at the end of the optional data; its name."""
        made = self.ovra("create", "--desc", description, "--devpath", path,
                         "--optdata-text", command_line(description), *more)
        return made["changes"][0]["variable"]

    def options(self):
        return {option["option"]: option for option in self.ovra("list")["options"]}


def command_line(description):
    return f"root=/dev/vda2 quiet marker={description}"


def expect(what, seen, wanted):
    if seen != wanted:
        raise Failure(f"{what}: {seen!r} instead of {wanted!r}")


def started(start):
    """What the program said: the optional data and the path of its partition, by the option's name."""
    found = re.findall(r"<started ([0-9a-f]{4}) ([^\n]*)\n([0-9a-f\s]+)>", start.console_text())
    return {f"Boot{number.upper()}": (text, "".join(path.split())) for number, text, path in found}


def expect_started(start, name, description, node):
    """The program got the option's optional data, and was on the partition of that packed node."""
    text, path = started(start)[name]
    expect(f"optional data of {name}", text, command_line(description))
    expect(f"the end of the path of the partition of {name}", path[-len(node):], node)


def packed_node(option):
    """The first node of the option's path, and the end of a path, as digits."""
    path = option["path"]
    size = 2 * int.from_bytes(bytes.fromhex(path[4:8]), "little")
    return path[:size] + "7fff0400"


class UBoot:
    """U-Boot, which keeps its variables in a file of its disk's system partition."""

    def __init__(self, emulator, arguments, firmware, device, scan, hardware, row):
        self.emulator, self.arguments, self.firmware, self.device = emulator, arguments, firmware, device
        self.scan = scan  # the command that finds the disk
        self.hardware = hardware  # in front of the partition, in the full form
        self.class_name, self.name = row

    def make_variables(self, machine):
        """Lets U-Boot make its file, with a variable in it."""
        start = machine.start()
        start.wait_for_console("Hit any key", LIMIT)
        for number, line in enumerate(["", *self.scan, "setenv -e -nv -bs -rt Made =0x11223344"], 1):
            start.console.send(line.encode() + b"\r")
            start.wait_for_console(rf"(?s)(\n=> .*){{{number}}}\Z", LIMIT)
        start.cut_power()

    def run(self, machine, command):
        variables = machine.folder / VARIABLES
        self.make_variables(machine)
        machine.copy_from_partition(VARIABLES, variables)
        header = 24
        made = variables.read_bytes()[header:]

        host = Host(command, variables)
        short = host.create("short", f"{PARTITION}/{FILE}")
        full = host.create("full", f"{self.hardware}/{PARTITION}/{FILE}")
        written = host.options()
        host.ovra("next", full)
        expect("U-Boot's own variables, in front of ours", variables.read_bytes()[header:][:len(made)], made)
        machine.copy_to_partition(variables, VARIABLES)

        start = machine.start()
        start.wait_for_console(r"<started [0-9a-f\s]+[^>]*>", LIMIT)
        start.wait_for_console("Application failed", LIMIT)
        start.cut_power()
        by_full = full in started(start)
        expect("BootNext fails", "Loading from BootNext failed" in start.console_text(), not by_full)
        expect_started(start, short, "short", packed_node(written[short]))

        # U-Boot has written the file anew, without BootNext.
        machine.copy_from_partition(VARIABLES, variables)
        expect("the options", host.options(), written)
        expect("BootNext", host.ovra("next")["next"], None)
        return {"class": self.class_name, "firmware": self.name, "short": "starts",
                "full": "starts" if by_full else "does not start", "own": "none",
                "path": self.hardware, "note": "its paths begin with a vendor's node of U-Boot"}  # fmt: skip


UBOOT = {
    "uboot_x86_64": UBoot(
        "qemu-system-x86_64", ["-machine", "q35", "-bios", "/usr/lib/u-boot/qemu-x86_64/u-boot.rom"],
        "/usr/lib/u-boot/qemu-x86_64/u-boot.rom", "ide-hd,bus=ide.0", ["scsi scan"],
        "PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)", ("SATA, first port", "U-Boot, x86-64")),
    "uboot_arm64": UBoot(
        "qemu-system-aarch64", [*ARM, "-bios", "/usr/lib/u-boot/qemu_arm64/u-boot.bin"],
        "/usr/lib/u-boot/qemu_arm64/u-boot.bin", VIRTIO, [],
        "PciRoot(0x0)/Pci(0x1,0x0)", ("virtio-blk", "U-Boot, arm64")),
}  # fmt: skip


class Aavmf:
    """EDK II on an ARM machine, which keeps its variables in flash memory."""

    emulator = "qemu-system-aarch64"
    device = VIRTIO
    name = "AAVMF, arm64"

    def __init__(self, folder):
        self.variables = Path(folder) / "variables"
        shutil.copyfile(AAVMF_VARIABLES, self.variables)
        self.arguments = [
            *ARM, "-drive", f"if=pflash,format=raw,readonly=on,file={AAVMF_CODE}",
            "-drive", f"if=pflash,format=raw,file={self.variables}",
        ]  # fmt: skip

    def run(self, machine, command):
        # Debian's file is blank: the firmware makes the store in it, and its own options.
        start = machine.start()
        start.wait_for_console("BdsDxe: starting ", LIMIT)
        start.cut_power()

        host = Host(command, self.variables)
        own = {option["path"] for option in host.options().values()}
        hardware = "PciRoot(0x0)/Pci(0x1,0x0)"
        short = host.create("short", f"{PARTITION}/{FILE}", "--position", "0")
        full = host.create("full", f"{hardware}/{PARTITION}/{FILE}", "--position", "1")
        last = host.ovra("create", "--desc", "off", "--devpath", f"{PARTITION}/{FILE}", "--optdata-text", "off",
                         "--position", "2")["changes"][0]["variable"]
        written = host.options()

        start = machine.start()
        expect("the machine went off by", start.wait_until_off(LIMIT), "guest-shutdown")
        node = packed_node(written[short])
        expect_started(start, short, "short", node)
        expect_started(start, full, "full", node)
        expect("the last that was started", list(started(start))[-1], last)
        expect("the options", {name: host.options()[name] for name in (short, full, last)},
               {name: written[name] for name in (short, full, last)})
        before = started(start)[full][1].removesuffix(node) + "7fff0400"
        expect("the firmware has an option for the disk", before in own, True)
        return {"class": "virtio-blk", "firmware": self.name, "short": "starts", "full": "starts", "own": "the same",
                "path": hardware, "note": ""}  # fmt: skip


def check_packages():
    missing = [name for name, is_there in PACKAGES.items() if not is_there()]
    if missing:
        sys.exit("The tests on other firmware need these Debian packages, which are missing or not readable:\n"
                 f"    {' '.join(missing)}\n'scripts/install-packages fresh' installs them.")


def try_machine(name, command, program, record):
    end_in_time()
    with tempfile.TemporaryDirectory(prefix=f"ovra-{name}-") as folder:
        kind = UBOOT[name] if name in UBOOT else Aavmf(folder)
        machine = Machine(folder, kind.emulator, kind.arguments, kind.device, program)
        try:
            results.hold(kind.name, [kind.run(machine, command)], record)
        except BaseException:
            print("".join(start.transcript() for start in machine.starts))
            raise
        finally:
            machine.off()


def main(arguments):
    match arguments:
        case ["packages"]:
            check_packages()
        case [("uboot_x86_64" | "uboot_arm64" | "aavmf") as name, command, program, *more] if more in ([], ["--record"]):
            try_machine(name, command, program, bool(more))
        case _:
            sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
