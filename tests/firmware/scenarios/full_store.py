"""Large options and a full variable store: what does not fit is refused, what was there stays."""
from machine import sata_disk

from . import common

LARGE = 30 * 1024  # bytes of optional data


def stored(start):
    """Digests of the variables of the boot configuration, as the kernel shows them. (The firmware notes a full store in a
    variable of its own.)"""
    lines = start.output("cd /sys/firmware/efi/efivars && sha256sum Boot*-8be4df61-*").splitlines()
    return {line.split()[1].split("-")[0]: line.split()[0] for line in lines}


def changed(before, after):
    return {name for name in before.keys() | after.keys() if before.get(name) != after.get(name)}


def room(start):
    """What QueryVariableInfo says is left for variables, in bytes; None when the kernel does not pass it on."""
    said = start.output("space").split()
    return None if said[0] == "status" else int(said[1])


def create_with_data(start, description, size):
    start.output(f"head -c {size} /dev/zero | tr '\\0' '{description[-1]}' >/tmp/data")
    return start.run(f"ovra create --desc {description} --disk c0t0d0s0 --optdata-file /tmp/data --json")


def run(lab):
    machine = lab.machine(sata_disk(lab.image("gpt"), 0))
    start = machine.start().wait_for_guest()
    keeper = common.create(start, "keeper", "c0t0d0s0", "--position", "0")
    left = room(start)

    # From large to small until not even a small one fits.
    made, refusals = {}, []
    for size in (LARGE, 4096, 256):
        for count in range(40):
            before = stored(start)
            description = f"fill-{chr(ord('a') + count % 26)}"
            done = create_with_data(start, description, size)
            after = stored(start)
            if done.status != 0:
                common.expect("variables that a refusal changed", changed(before, after), set())
                refusals.append(done.err)
                break
            new = changed(before, after) - {"BootOrder"}
            common.expect("variables written", len(new), 1)
            made[new.pop()] = (description[-1], size)
    common.expect("sizes that were refused in the end", len(refusals), 3)
    for refusal in refusals:
        assert "no room in the variable store\n" in refusal, f"the refusal says: {refusal}"
    large = sum(size == LARGE for _, size in made.values())
    assert large >= 3, f"only {large} options of {LARGE} bytes fit"
    for option, (letter, size) in list(made.items())[:1] + list(made.items())[-1:]:
        data = start.ovra(f"show {option}")["optional_data"]
        common.expect(f"the optional data of {option}", data, f"{ord(letter):02x}" * size)

    # Full as it is, an option can go, but there is no room to write the order anew: the command says what is left to do.
    gone = sorted(made)[0]
    removed = start.run(f"ovra remove {gone}")
    common.expect("the removal", (removed.status, removed.err.splitlines()[:2]), (1, [
        f"ovra: {gone} is removed, but BootOrder still names it", f"  'ovra order remove {gone}' takes it out."]))
    assert gone not in stored(start), f"{gone} is still there"
    del made[gone]
    kept = {name: digest for name, digest in stored(start).items() if name in made}
    common.reset(start)

    start = machine.start().wait_for_guest()
    common.expect_started(start, keeper, "keeper")
    if left is not None:
        # Not to the byte: the firmware has won back what its own variables had left behind, too.
        written = sum(size for _, size in made.values())
        assert room(start) < left - written // 2, f"{room(start)} bytes are left of {left} behind {written} of data"
    common.expect("options that changed", changed(kept, stored(start)) & kept.keys(), set())
    # At its start the firmware has won back the room of what was removed, and may have put its order right itself.
    if gone in common.order(start):
        start.output(f"ovra order remove {gone}")
    start.output("ovra remove " + " ".join(sorted(made)))
    common.expect("options left", [name for name in common.options(start) if name in made or name == gone], [])
    common.reset(start)

    start = machine.start().wait_for_guest()
    common.expect_started(start, keeper, "keeper")
    common.expect("a large option again", create_with_data(start, "again", LARGE).status, 0)
