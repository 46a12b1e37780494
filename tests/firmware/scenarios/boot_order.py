# SPDX-License-Identifier: MIT
"""Three options in a changed BootOrder, which survives switching the machine off."""
from machine import sata_disk

from . import common


def run(lab):
    machine = lab.machine(sata_disk(lab.image("gpt"), 0))
    start = machine.start().wait_for_guest()
    first, second, third = (common.create(start, each, "c0t0d0s0") for each in ("first", "second", "third"))
    start.output(f"ovra order insert {common.name(third)} 0")
    start.output(f"ovra order insert {common.name(first)} 1")
    start.output(f"ovra order insert {common.name(second)} -1")
    order = common.order(start)
    common.expect("the order's ends", [order[0], order[1], order[-1]],
                  [common.name(number) for number in (third, first, second)])
    common.power_off(start)

    start = machine.start().wait_for_guest()
    common.expect_started(start, third, "third")
    common.expect("BootOrder", common.order(start), order)
    # An inactive option is passed over; the first of the order starts.
    start.output(f"ovra set {common.name(third)} --inactive")
    common.power_off(start)

    start = machine.start().wait_for_guest()
    common.expect_started(start, first, "first")
    start.output(f"ovra order set {common.name(second)},{common.name(first)}")
    common.power_off(start)

    start = machine.start().wait_for_guest()
    common.expect_started(start, second, "second")
    common.expect("the front of BootOrder", common.order(start)[:2], [common.name(second), common.name(first)])
