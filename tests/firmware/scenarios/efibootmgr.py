# SPDX-License-Identifier: MIT
"""What efibootmgr lists of options that we wrote, and what we list of options that it wrote."""
import re

from disks import COMMAND_LINE, GUIDS, KERNEL, SIZE, START
from machine import sata_disk

from . import common

SLICE = f"HD(1,GPT,{GUIDS['gpt']},{START:#x},{SIZE:#x})"


def listing(start):
    """What efibootmgr prints: its headings by their names, the options' lines by their numbers."""
    headings, options = {}, {}
    for line in start.output("efibootmgr -v").splitlines():
        option = re.fullmatch(r"Boot([0-9A-F]{4})([* ]) ([^\t]*)\t(.*)", line)
        if option:
            number, active, description, path = option.groups()
            options[int(number, 16)] = (active == "*", description, path)
        elif ": " in line:
            key, value = line.split(": ", 1)
            headings[key] = value
    return headings, options


def expect_alike(start):
    """Both list the same options, in the same order."""
    headings, options = listing(start)
    ours = common.options(start)
    common.expect("efibootmgr's BootOrder", headings["BootOrder"], ",".join(each[4:] for each in common.order(start)))
    common.expect("efibootmgr's BootCurrent", headings["BootCurrent"], start.ovra("current")["current"][4:])
    following = start.ovra("next")["next"]
    common.expect("efibootmgr's BootNext", headings.get("BootNext"), following and following[4:])
    common.expect("efibootmgr's options", {common.name(each) for each in options}, set(ours))
    for number, (active, description, _) in options.items():
        one = ours[common.name(number)]
        common.expect(f"option {number:04X}", (one["active"], one["description"]), (active, description))
    return options, ours


def run(lab):
    machine = lab.machine(sata_disk(lab.image("gpt"), 0))
    start = machine.start().wait_for_guest()
    expect_alike(start)

    # Ours: with and without a file and optional data, inactive, a name that is not ASCII.
    plain = common.create(start, "ours", "c0t0d0s0")
    bare = int(start.ovra("create --desc bare --disk /dev/sda1 --position 0")["changes"][0]["variable"][4:], 16)
    named = int(start.ovra("create --desc 'Zweite Öffnung' --disk c0t0d0s0 --file '\\EFI\\X.EFI' --number 1F00")
                ["changes"][0]["variable"][4:], 16)
    start.output(f"ovra set {common.name(named)} --inactive")
    start.output(f"ovra next {common.name(bare)}")
    options, _ = expect_alike(start)
    assert options[plain][2].startswith(f"{SLICE}/File({KERNEL})"), options[plain][2]
    common.expect("our bare option", options[bare], (True, "bare", SLICE))
    common.expect("our named option", options[named], (False, "Zweite Öffnung", rf"{SLICE}/File(\EFI\X.EFI)"))

    # Its own: the same option as ours but for the name, to the byte; a changed order; a next option; a removal.
    start.output(f"efibootmgr -q --create --disk /dev/sda --part 1 --label theirs --loader '{KERNEL}' "
                 f"--unicode '{COMMAND_LINE} marker=ours'")
    options, ours = expect_alike(start)
    (theirs,) = [number for number, (_, description, _) in options.items() if description == "theirs"]
    one, other = ours[common.name(theirs)], ours[common.name(plain)]
    for field in ("path", "attributes", "instances"):
        common.expect(f"the {field} of efibootmgr's option", one[field], other[field])
    # efibootmgr leaves the terminator of the text out.
    common.expect("the optional data of efibootmgr's option", one["optional_data"] + "0000", other["optional_data"])
    common.expect("the front of the order", common.order(start)[0], common.name(theirs))

    start.output(f"efibootmgr -q --bootorder {plain:04X},{theirs:04X},{named:04X}")
    start.output(f"efibootmgr -q --bootnext {theirs:04X}")
    start.output(f"efibootmgr -q --delete-bootnum --bootnum {bare:04X}")
    expect_alike(start)
    common.expect("the order", common.order(start), [common.name(each) for each in (plain, theirs, named)])
    common.expect("the next option", start.ovra("next")["next"], common.name(theirs))
    start.output(f"ovra remove {common.name(named)}")
    expect_alike(start)
    common.reset(start)

    start = machine.start().wait_for_guest()
    common.expect("the firmware started", start.option_started(), (theirs, "theirs"))
    expect_alike(start)
