# SPDX-License-Identifier: MIT
"""The power goes while 50 options are written: each is the old or the new one, and the machine starts."""
import time

from machine import sata_disk

from . import common

COUNT = 50
SIZE = 700  # bytes of optional data
FIRST = 0x100

# The data written, the number of options written before the power goes, and the delay after that in seconds: the guest
# takes about 0.1 s for an option.
CUTS = (("b", 7, 0.05), ("c", 21, 0.08), ("d", 30, 0.12))


def contents(letter):
    return f"{ord(letter):02x}" * SIZE


def write_all(letter, verb):
    """Guest: writes all options, and says on its console after each that it is done."""
    return (f"head -c {SIZE} /dev/zero | tr '\\0' {letter} >/tmp/data; "
            f"for number in $(seq {FIRST} {FIRST + COUNT - 1}); do option=$(printf %04X $number); "
            f"ovra {verb} --optdata-file /tmp/data >/dev/null || exit 1; echo {letter} in $option >/dev/ttyS0; done")


def run(lab):
    machine = lab.machine(sata_disk(lab.image("gpt"), 0))
    start = machine.start().wait_for_guest()
    keeper = common.create(start, "keeper", "c0t0d0s0", "--position", "0")
    start.output(write_all("a", "create --desc option --disk c0t0d0s0 --number $option"), 120)
    names = [common.name(number) for number in range(FIRST, FIRST + COUNT)]
    order = common.order(start)
    common.expect("the order's end", order[-COUNT:], names)
    path = start.ovra(f"show {names[0]}")["path"]

    stored = dict.fromkeys(names, "a")
    for new, done, delay in CUTS:
        start.send(write_all(new, "set $option"))
        start.wait_for_console(f"{new} in {names[done][4:]}\\b", 120)
        time.sleep(delay)
        start.cut_power()

        start = machine.start().wait_for_guest()
        common.expect_started(start, keeper, "keeper")
        common.expect("BootOrder", common.order(start), order)
        options = common.options(start)
        for name in names:
            option = options[name]
            common.expect(f"{name}'s other fields", (option["description"], option["path"], option["attributes"]),
                          ("option", path, 1))
            assert option["optional_data"] in (contents(stored[name]), contents(new)), (
                f"{name} is neither old nor new: {option['optional_data']}")
            if option["optional_data"] == contents(new):
                stored[name] = new
        # In the order in which they were written: new ones, then none.
        count = list(stored.values()).count(new)
        common.expect("the options that are new", [stored[name] for name in names[:count]], [new] * count)
        assert done < count < COUNT, f"{count} of {COUNT} are new: the power did not go while they were written"
