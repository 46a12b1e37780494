# SPDX-License-Identifier: MIT
"""An option made from a disk's name, booted once through BootNext."""
import re

from disks import SECOND_LOADER
from machine import sata_disk

from . import common


def run(lab):
    machine = lab.machine(sata_disk(lab.image("gpt"), 0))
    start = machine.start().wait_for_guest()
    start.show("ovra list")
    start.show("ovra disks")
    own = [option["description"] for option in common.options(start).values()]
    assert any("HARDDISK" in description for description in own), f"the firmware's own options: {own}"
    common.expect("BootNext", start.ovra("next")["next"], None)
    before = common.order(start)

    existing = common.options(start).keys()
    start.show("ovra " + common.creation("second-loader", "c0t0d0s0", loader=SECOND_LOADER))
    (created,) = common.options(start).keys() - existing
    number = int(created[4:], 16)
    common.expect("BootOrder", common.order(start), before + [common.name(number)])
    start.show(f"ovra next {common.name(number)}")
    common.expect("BootNext", start.ovra("next")["next"], common.name(number))
    machine.shown += "# ovra reset --yes\n\n"
    common.reset(start)

    start = machine.start().wait_for_guest()
    start.show("cat /proc/cmdline")
    start.show("ovra current")
    start.show("ovra next")
    common.expect_started(start, number, "second-loader")
    common.expect("BootNext", start.ovra("next")["next"], None)
    common.expect("BootOrder", common.order(start), before + [common.name(number)])
    common.reset(start)

    # Once only: the firmware goes back to its order.
    start = machine.start()
    start.wait_for_console(r"BdsDxe: starting Boot[^\n]*\n")
    first = re.search(r'BdsDxe: starting Boot([0-9A-F]{4})', start.console_text())[1]
    assert int(first, 16) != number, "the option was started twice"
