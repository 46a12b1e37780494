# SPDX-License-Identifier: MIT
"""Large options and a full variable store: what does not fit is refused, what was there stays, the machine starts."""
from machine import sata_disk

from . import common

LARGE = 30 * 1024  # bytes of optional data
SIZES = (LARGE, 4096, 256, 1)
TOO_LARGE = 60 * 1024  # for any variable of this firmware's
RESERVE = 5 * 1024  # kept back by the kernel: some firmware does not start with a completely full store
OWN = 1024  # bytes of a variable beside the optional data, and more

# What the firmware itself changes when a write does not fit, and at each start.
NOTED = {"VarErrorFlag"}
COUNTED = NOTED | {"BootCurrent", "BootOrder", "MTC"}


def stored(start):
    """Digests of all variables, as the kernel shows them, by the names of their files."""
    lines = start.output("cd /sys/firmware/efi/efivars && sha256sum *").splitlines()
    return {name: digest for digest, name in (line.split(maxsplit=1) for line in lines)}


def changed(before, after, but):
    """The names of the variables that differ; those that firmware changes itself are left out."""
    names = {name for name in before.keys() | after.keys() if before.get(name) != after.get(name)}
    return {name.split("-")[0] for name in names} - but


def room(start):
    """What QueryVariableInfo says is left for variables, in bytes; None when the kernel does not pass it on."""
    said = start.output("space").split()
    return None if said[0] == "status" else int(said[1])


def create_with_data(start, letter, size):
    start.output(f"head -c {size} /dev/zero | tr '\\0' {letter} >/tmp/data")
    return start.run(f"ovra create --desc fill-{letter} --disk c0t0d0s0 --optdata-file /tmp/data")


def fill(start):
    """Makes options, from large to small ones, until not even the smallest fits; the letters of their data and their
    sizes, by their names."""
    made = {}
    before = stored(start)
    for size in SIZES:
        refused = False
        for count in range(40):
            letter = chr(ord("a") + count % 26)
            done = create_with_data(start, letter, size)
            after = stored(start)
            new = changed(before, after, NOTED)
            if done.status != 0:
                common.expect("variables that a refusal changed", new, set())
                assert "no room in the variable store\n" in done.err, f"the refusal says: {done.err}"
                refused = True
                break
            before = after
            new -= {"BootOrder"}
            common.expect("variables written", len(new), 1)
            made[new.pop()] = (letter, size)
        assert refused, f"options of {size} bytes are never refused"
        left = room(start)
        assert left is None or left < size + RESERVE + OWN, f"{left} bytes are left, but {size} were refused"
    return made


def run(lab):
    machine = lab.machine(sata_disk(lab.image("gpt"), 0))
    start = machine.start().wait_for_guest()
    keeper = common.create(start, "keeper", "c0t0d0s0", "--position", "0")
    # The store has room for this one: the firmware refuses it. Later the kernel does.
    before = stored(start)
    refused = create_with_data(start, "x", TOO_LARGE)
    assert refused.status == 1 and "  The firmware may be unable to keep a variable of 6" in refused.err, refused.err
    common.expect("variables that a refusal changed", changed(before, stored(start), NOTED), set())
    made = fill(start)
    large = sum(size == LARGE for _, size in made.values())
    assert large >= 6, f"only {large} options of {LARGE} bytes fit"
    for option, (letter, size) in list(made.items())[:1] + list(made.items())[-1:]:
        data = start.ovra(f"show {option}")["optional_data"]
        common.expect(f"the optional data of {option}", data, f"{ord(letter):02x}" * size)

    # An option can be removed from a full store, but the order cannot be rewritten: the command says what to do.
    gone = sorted(made)[0]
    removed = start.run(f"ovra remove {gone}")
    said = removed.err.splitlines()
    common.expect("the removal", (removed.status, said[0]), (1,
        f"ovra: {gone} is removed, but BootOrder still names it: no room to write it"))
    for advice in (f"  'ovra order remove {gone}' takes it out.",
                   "  Most firmware gives the room of what is removed back only at the next start:"):
        assert advice in said, removed.err
    before = stored(start)
    assert not any(name.startswith(gone) for name in before), f"{gone} is still there"
    del made[gone]
    common.reset(start)

    # Before it starts the option the firmware packs its store anew, in emulated flash and byte by byte.
    start = machine.start().wait_for_guest(limit=500)
    common.expect_started(start, keeper, "keeper")
    common.expect("variables that the start changed", changed(before, stored(start), COUNTED), set())
    # The firmware has reclaimed the room of removed variables, and may have corrected the order itself.
    if gone in common.order(start):
        start.output(f"ovra order remove {gone}")
    start.output("ovra remove " + " ".join(sorted(made)))
    common.expect("options left", [name for name in common.options(start) if name in made or name == gone], [])
    common.reset(start)

    start = machine.start().wait_for_guest()
    common.expect_started(start, keeper, "keeper")
    common.expect("a large option again", create_with_data(start, "z", LARGE).status, 0)
