# SPDX-License-Identifier: MIT
"""What the firmware or the kernel refuses: each refusal has its status, and leaves nothing behind."""
from machine import sata_disk

from . import common
from .full_store import NOTED, changed, stored

VARIABLES = "/sys/firmware/efi/efivars"
OTHER = "00112233-4455-6677-8899-aabbccddeeff"

SUCCESS = "0"
INVALID_PARAMETER = "8000000000000002"
UNSUPPORTED = "8000000000000003"
WRITE_PROTECTED = "8000000000000008"
NOT_FOUND = "800000000000000e"

# Name, vendor, attributes, size, and the answer. tests/platform/variables/ has the same of a folder machine.
REFUSED = [
    # The kernel takes each byte of a new file's name for a character, and "!" for "/".
    ("\u00e9t\u00e9", "other", 7, 4, UNSUPPORTED),
    ("a/b", "other", 7, 4, UNSUPPORTED),
    # OVMF knows every name below UEFI's own vendor.
    ("Unknown", "global", 7, 4, INVALID_PARAMETER),
    ("Boot0042", "global", 6, 20, INVALID_PARAMETER),
    ("Boot0042", "global", 3, 20, INVALID_PARAMETER),
    ("Test", "other", 6, 4, INVALID_PARAMETER),
    ("Test", "other", 3, 4, INVALID_PARAMETER),
    ("Test", "other", 2, 4, INVALID_PARAMETER),
    ("Test", "other", 7, 40000, INVALID_PARAMETER),
    ("Stored", "other", 3, 4, INVALID_PARAMETER),
    ("Stored", "other", 0x47, 20000, INVALID_PARAMETER),
    ("BootCurrent", "global", 6, 2, WRITE_PROTECTED),
    ("BootCurrent", "global", 7, 2, INVALID_PARAMETER),
    ("BootCurrent", "global", 0, 0, WRITE_PROTECTED),
    ("SetupMode", "global", 0, 0, WRITE_PROTECTED),
]


def run(lab):
    machine = lab.machine(sata_disk(lab.image("gpt"), 0))
    start = machine.start().wait_for_guest()

    def answer(words):
        return start.output(f"variable {words}").strip()

    common.expect("a variable that fits", answer("set Stored other 7 20000"), SUCCESS)
    before = stored(start)
    for name, vendor, attributes, size, wanted in REFUSED:
        common.expect(f"{name} of {size} bytes with attributes {attributes}",
                      answer(f"set {name} {vendor} {attributes} {size}"), wanted)
        common.expect(f"variables that {name} changed", changed(before, stored(start), NOTED), set())

    # The empty file that another program left of a refused variable: immutable.
    start.run(f"printf x >{VARIABLES}/Left-{OTHER}")
    common.expect("the file that is left", start.output(f"stat -c %s {VARIABLES}/Left-{OTHER}").strip(), "0")
    common.expect("it is read", answer("get Left other"), NOT_FOUND)
    common.expect("it is deleted", answer("set Left other 0 0"), NOT_FOUND)
    common.expect("it is written", answer("set Left other 7 4"), SUCCESS)
    common.expect("it is read again", answer("get Left other"), f"{SUCCESS} 4")
    common.expect("it is deleted again", answer("set Left other 7 0"), SUCCESS)
    common.expect("variables that differ", changed(before, stored(start), NOTED), set())

    # A lock on the folder of variables, which any user may take, has no effect.
    start.output(f"flock {VARIABLES} sleep 300 >/dev/null 2>&1 & sleep 1")
    common.expect("a write meanwhile", answer("set Stored other 7 8"), SUCCESS)
    common.expect("the lock's file", start.output("stat -c '%a %s' /run/ovra.lock").strip(), "600 0")

    start.output(f"mount -o remount,ro {VARIABLES}")
    common.expect("a write to what is mounted read-only", answer("set Stored other 7 4"), WRITE_PROTECTED)
    common.expect("a deletion", answer("set Stored other 7 0"), WRITE_PROTECTED)
    common.expect("a new variable", answer("set New other 7 4"), WRITE_PROTECTED)
    common.expect("a read", answer("get Stored other"), f"{SUCCESS} 8")
    for words in ("next Boot0000", "next Boot0000 --dry-run"):
        said = start.output(f"ovra {words} 2>&1 || true")
        assert "'mount -o remount,rw /sys/firmware/efi/efivars' makes them writable." in said, said
    start.output(f"mount -o remount,rw {VARIABLES}")
    said = start.output("ovra next Boot0000 --dry-run")
    assert "Not known: whether the firmware takes it, which only writing tells." in said, said
    common.expect("a deletion", answer("set Stored other 7 0"), SUCCESS)
