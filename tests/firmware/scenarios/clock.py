# SPDX-License-Identifier: MIT
"""The clock, the wake-up alarm, and the room for variables."""
import datetime
import re

from machine import sata_disk

from . import common

VARIABLES = "/sys/firmware/efi/efivars"


def seconds(text):
    return int(datetime.datetime.fromisoformat(text + "+00:00").timestamp())


def chip(start):
    """What the kernel's driver says of the clock's chip."""
    return dict(re.findall(r"^(\S+)\s*: (.*)$", start.output("cat /proc/driver/rtc"), re.MULTILINE))


def alarm(start):
    """What the command says of the wake-up."""
    said = start.ovra("time --wakeup")
    return said["enabled"], said["pending"], said["time"]


def run(lab):
    machine = lab.machine(sata_disk(lab.image("gpt"), 0))
    start = machine.start().wait_for_guest()

    # The kernel took its own clock from the chip when it started.
    before, ours, after = start.output("date -u +%s; ovra time; date -u +%s").split()
    assert int(before) - 2 <= seconds(ours) <= int(after) + 2, f"{ours} between {before} and {after}"

    start.output("ovra time --set 2031-02-03T04:05:06")
    ours = start.output("ovra time").strip()
    assert 0 <= seconds(ours) - seconds("2031-02-03T04:05:06") <= 5, ours
    now = chip(start)
    assert 0 <= seconds(f"{now['rtc_date']}T{now['rtc_time']}") - seconds(ours) <= 5, f"{ours}, but the chip: {now}"

    common.expect("the alarm", alarm(start), (False, False, None))
    start.output("ovra time --wakeup --set 2031-02-03T12:34:56")
    common.expect("the alarm", alarm(start), (True, False, "2031-02-03T12:34:56"))
    now = chip(start)
    common.expect("the chip's alarm", (now["alrm_date"], now["alrm_time"], now["alarm_IRQ"]),
                  ("2031-02-03", "12:34:56", "yes"))
    # The chip keeps no year: what is too far ahead leaves the alarm that stood.
    said = start.output("ovra time --wakeup --set 2090-01-01T00:00:00 2>&1 && echo done || true")
    assert "too far ahead" in said and "The alarm stands at 2031-02-03T12:34:56 as before." in said, said
    common.expect("the alarm", start.ovra("time --wakeup")["time"], "2031-02-03T12:34:56")
    start.output("ovra time --wakeup --clear")
    common.expect("the alarm", start.ovra("time --wakeup")["enabled"], False)
    common.expect("the chip's alarm", chip(start)["alarm_IRQ"], "no")
    # An alarm that has gone off is over.
    soon = datetime.datetime.fromisoformat(start.output("ovra time").strip()) + datetime.timedelta(seconds=8)
    start.output(f"ovra time --wakeup --set {soon.isoformat()}")
    common.expect("the alarm", start.ovra("time --wakeup")["enabled"], True)
    start.output("for second in $(seq 20); do sleep 1; ovra time --wakeup | grep -q 'no wake-up is set' && break; done")
    common.expect("the alarm", start.ovra("time --wakeup")["enabled"], False)

    # A kernel that does not report the size of the store shows 0 blocks in statfs.
    said = start.output("space").strip()
    block, blocks, free = (int(word) for word in start.output(f"stat -f -c '%S %b %a' {VARIABLES}").split())
    if blocks == 0:
        common.expect("QueryVariableInfo", said, "status 8000000000000003")
    else:
        common.expect("QueryVariableInfo", said, f"{block * blocks} {block * free} {block * free}")
