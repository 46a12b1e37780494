# SPDX-License-Identifier: MIT
"""Starts virtual machines with real firmware.
    run.py packages                  fails with what is missing on this machine
    run.py images DIR OVRA LAY_OUT STARTED PROGRAM...
                                     makes the disks of the guests in DIR, with these for the host and for the guests
    run.py SCENARIO DIR              runs one scenario on the disks in DIR
    run.py SCENARIO DIR --show       and prints what was typed and seen
    run.py SCENARIO DIR --record     and records what it is compared with
"""
import importlib
import shutil
import signal
import sys
import tempfile
from pathlib import Path

import disks
import initramfs
from machine import FIRMWARE_CODE, FIRMWARE_VARIABLES, Failure, Machine

HERE = Path(__file__).parent

SCENARIO_LIMIT = 840  # seconds; ctest's own is longer: the machines are switched off here

# Where each Debian package is seen.
PACKAGES = {
    "qemu-system-x86": lambda: shutil.which("qemu-system-x86_64"),
    "ovmf": lambda: Path(FIRMWARE_CODE).exists() and Path(FIRMWARE_VARIABLES).exists(),
    "linux-image-amd64": initramfs.newest_kernel,
    "busybox-static": initramfs.busybox_is_static,
    "mtools": lambda: shutil.which("mformat"),
    "clang": lambda: shutil.which("clang"),
    "lld": lambda: shutil.which("ld.lld"),
    "gdisk": lambda: shutil.which("sgdisk", path=disks.PATH),
    "fdisk": lambda: shutil.which("sfdisk", path=disks.PATH),
    "efibootmgr": lambda: Path("/bin/efibootmgr").exists(),
}


class Lab:
    """What a scenario works with: the disks that all share, and one machine in a folder of its own."""

    def __init__(self, images, folder, record=False):
        self.images = Path(images).resolve()
        self.folder = Path(folder)
        self.record = record
        self.made = None

    def machine(self, *devices, chipset="q35"):
        self.made = Machine(self.folder, devices, chipset)
        return self.made

    def image(self, name):
        return self.images / name

    def host(self, program, *arguments):
        """What a program of the host prints."""
        return disks.run(self.images / "host" / program, *arguments)


def check_packages():
    missing = [name for name, is_there in PACKAGES.items() if not is_there()]
    if missing:
        sys.exit("The tests on real firmware need these Debian packages, which are missing or not readable:\n"
                 f"    {' '.join(missing)}\nscripts/check installs them; scripts/check --fast leaves these tests out.")


def make_images(folder, ovra, lay_out, started, programs):
    folder = Path(folder)
    (folder / "host").mkdir(parents=True, exist_ok=True)
    for name, file in ("ovra", ovra), ("lay_out", lay_out), ("started.efi", started):
        (folder / "host" / name).unlink(missing_ok=True)
        (folder / "host" / name).symlink_to(Path(file).resolve())
    version = initramfs.newest_kernel()
    archive = folder / "initramfs"
    archive.write_bytes(initramfs.make([ovra, *programs, "/bin/efibootmgr"], HERE / "init", version))
    partition = disks.system_partition(Path("/boot", f"vmlinuz-{version}"), archive, folder)
    for name, guid in disks.GUIDS.items():
        disks.disk(folder / name, partition, guid)
    disks.disk(folder / "mbr", partition)


def end_in_time():
    """Lets a scenario that takes too long, or that ctest ends, fail as any other does."""

    def end(number, _):
        raise Failure(f"ended by signal {signal.Signals(number).name}")

    signal.signal(signal.SIGALRM, end)
    signal.signal(signal.SIGTERM, end)
    signal.alarm(SCENARIO_LIMIT)


def run_scenario(name, images, show=False, record=False):
    scenario = importlib.import_module(f"scenarios.{name}")
    end_in_time()
    with tempfile.TemporaryDirectory(prefix=f"ovra-{name}-") as folder:
        lab = Lab(images, folder, record)
        try:
            scenario.run(lab)
            if show:
                print(lab.made.shown)
        except BaseException:
            if lab.made:
                print(lab.made.transcript())
            raise
        finally:
            if lab.made:
                lab.made.off()


def main(arguments):
    match arguments:
        case ["packages"]:
            check_packages()
        case ["images", folder, ovra, lay_out, started, *programs]:
            make_images(folder, ovra, lay_out, started, programs)
        case [scenario, images]:
            run_scenario(scenario, images)
        case [scenario, images, "--show"]:
            run_scenario(scenario, images, show=True)
        case [scenario, images, "--record"]:
            run_scenario(scenario, images, record=True)
        case _:
            sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
