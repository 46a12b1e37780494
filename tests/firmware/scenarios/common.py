"""What the scenarios say alike."""
import reprlib
import shlex

from disks import COMMAND_LINE, KERNEL

# Values of variables are long.
reprlib.aRepr.maxstring = 400
reprlib.aRepr.maxlist = reprlib.aRepr.maxtuple = 60


def expect(what, seen, wanted):
    assert seen == wanted, f"{what}: {reprlib.repr(seen)} instead of {reprlib.repr(wanted)}"


def create(start, description, disk, *more, shown=False):
    """Makes an option that starts the kernel from `disk`, with `description` on its command line; its number."""
    text = f"{COMMAND_LINE} marker={description}"
    arguments = ["--desc", description, "--disk", disk, "--file", KERNEL, "--optdata-text", text, *more]
    if shown:
        start.show(f"ovra create {shlex.join(arguments)}")
        return next(int(name[4:], 16) for name, option in options(start).items() if option["description"] == description)
    changes = start.ovra(f"create {shlex.join(arguments)}")["changes"]
    return int(changes[0]["variable"][4:], 16)


def name(number):
    return f"Boot{number:04X}"


def order(start):
    return start.ovra("order")["order"]


def options(start):
    """All options by their names."""
    return {option["option"]: option for option in start.ovra("list")["options"]}


def expect_started(start, number, description):
    """The firmware started that option, and everybody inside knows."""
    expect("the firmware started", start.option_started(), (number, description))
    words = start.command_line().split()
    assert f"marker={description}" in words, f"the kernel was started with: {words}"
    expect("BootCurrent", start.ovra("current")["current"], name(number))


def reset(start):
    start.send("ovra reset --yes")
    expect("the machine went off by", start.wait_until_off(), "guest-reset")


def power_off(start):
    start.send("ovra reset --shutdown --yes")
    expect("the machine went off by", start.wait_until_off(), "guest-shutdown")
