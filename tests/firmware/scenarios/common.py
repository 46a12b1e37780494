# SPDX-License-Identifier: MIT
"""What the scenarios share."""
import reprlib
import shlex

from disks import COMMAND_LINE, KERNEL
from machine import Failure

# Values of variables are long.
reprlib.aRepr.maxstring = 400
reprlib.aRepr.maxlist = reprlib.aRepr.maxtuple = 60


def expect(what, seen, wanted):
    if seen != wanted:
        raise Failure(f"{what}: {reprlib.repr(seen)} instead of {reprlib.repr(wanted)}")


def creation(description, disk, *more, loader=KERNEL):
    """The command that makes an option to start the kernel from `disk`, with `description` on its command line."""
    text = f"{COMMAND_LINE} marker={description}"
    return "create " + shlex.join(["--desc", description, "--disk", disk, "--file", loader, "--optdata-text", text, *more])


def create(start, description, disk, *more, **fields):
    """Makes such an option; its number."""
    changes = start.ovra(creation(description, disk, *more, **fields))["changes"]
    return int(changes[0]["variable"][4:], 16)


def name(number):
    return f"Boot{number:04X}"


def order(start):
    return start.ovra("order")["order"]


def options(start):
    """All options by their names."""
    return {option["option"]: option for option in start.ovra("list")["options"]}


def expect_started(start, number, description):
    """The firmware started that option, and the guest agrees."""
    expect("the firmware started", start.option_started(), (number, description))
    words = start.command_line()
    assert f"marker={description}" in words, f"the kernel was started with: {words}"
    expect("BootCurrent", start.ovra("current")["current"], name(number))


def reset(start):
    start.send("ovra reset --yes")
    expect("the machine went off by", start.wait_until_off(), "guest-reset")


def power_off(start):
    start.send("ovra reset --shutdown --yes")
    expect("the machine went off by", start.wait_until_off(), "guest-shutdown")
