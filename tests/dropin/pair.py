# SPDX-License-Identifier: MIT
"""Two programs on the same machine, one after the other: what each prints and writes."""
import os
import re
import shutil
import subprocess
import tempfile

VENDOR = "8be4df61-93ca-11d2-aa0d-00e098032b8c"
MIRROR = "7b9be2e0-e28a-4197-ad3e-32f062f9462c"
PARTITIONS = {"q35": ("sdd1",), "pc": ("sda1",)}
CARD = ("eth7", "52:54:00:12:34:56")


def numbers(*values, attributes=7):
    return attributes.to_bytes(4, "little") + b"".join(value.to_bytes(2, "little") for value in values)


def option(description, path=bytes.fromhex("7fff0400"), data=b"", flags=1):
    return ((7).to_bytes(4, "little") + flags.to_bytes(4, "little") + len(path).to_bytes(2, "little") +
            description.encode("utf-16-le") + b"\0\0" + path + data)


class Machine:
    """A captured machine, in which another program finds its devices too."""

    def __init__(self, captured, name, theirs, ours, calls):
        self.theirs, self.ours, self.calls = theirs, ours, calls
        self.folder = tempfile.TemporaryDirectory()
        self.root = os.path.realpath(self.folder.name)
        subprocess.run(["cp", "-a", "--sparse=always", f"{captured}/{name}/.", self.root], check=True)
        self.add_links()
        for partition in PARTITIONS[name]:
            shutil.copy(f"{self.root}/dev/{partition[:-1]}", f"{self.root}/dev/{partition}")
        self.add_card(*CARD)
        self.variables = f"{self.root}/sys/firmware/efi/efivars"
        self.kept = self.stored()

    def add_links(self):
        sys = f"{self.root}/sys"
        for kind in ("dev/block", "class/block"):
            os.makedirs(f"{sys}/{kind}", exist_ok=True)
        for disk in os.scandir(f"{sys}/block"):
            place = os.path.realpath(disk.path)
            parts = [each.path for each in os.scandir(place) if os.path.exists(f"{each.path}/partition")]
            for device in (place, *parts):
                target = f"../../{os.path.relpath(device, sys)}"
                with open(f"{device}/dev", encoding="ascii") as file:
                    os.symlink(target, f"{sys}/dev/block/{file.read().strip()}")
                if not os.path.lexists(f"{sys}/class/block/{os.path.basename(device)}"):
                    os.symlink(target, f"{sys}/class/block/{os.path.basename(device)}")

    def add_card(self, name, address):
        folder = f"{self.root}/sys/devices/virtual/net/{name}"
        os.makedirs(folder)
        for file, text in (("address", address), ("type", "1")):
            with open(f"{folder}/{file}", "w", encoding="ascii") as opened:
                opened.write(text + "\n")
        os.makedirs(f"{self.root}/sys/class/net", exist_ok=True)
        os.symlink(f"../../devices/virtual/net/{name}", f"{self.root}/sys/class/net/{name}")

    def stored(self):
        found = {}
        for file in os.scandir(self.variables):
            with open(file.path, "rb") as opened:
                found[file.name.removesuffix(f"-{VENDOR}")] = opened.read()
        return found

    def path_of(self, name):
        return f"{self.variables}/{name}" if re.search("-[0-9a-f]{12}$", name) else f"{self.variables}/{name}-{VENDOR}"

    def lay_out(self, changes):
        wanted = {**self.kept, **changes}
        for name in self.stored():
            if name not in self.kept or wanted[name] is None:
                os.remove(self.path_of(name))
        for name, data in wanted.items():
            if data is not None:
                with open(self.path_of(name), "wb") as file:
                    file.write(data)

    def run(self, program, words, changes, given, environment):
        self.lay_out(changes)
        before = self.stored()
        done = subprocess.run(["efibootmgr", *words], executable=program, input=given, capture_output=True, check=False,
                              env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8",
                                   "EFIVARFS_PATH": f"{self.variables}/", **environment})
        after = self.stored()
        changed = {name: after.get(name) for name in before | after if before.get(name) != after.get(name)}
        return done.returncode, done.stdout.decode(), done.stderr.decode(), changed

    def both(self, words, changes=None, given=b""):
        """(status, output, errors, changed variables) of the other program and of ours."""
        changes = changes or {}
        theirs = self.run(self.theirs, words, changes, given, {"MACHINE": self.root, "LD_PRELOAD": self.calls})
        return theirs, self.run(self.ours, words, changes, given, {})


def plain(listing):
    """A list whose device paths have the same text whichever program printed them."""
    lines = []
    for line in listing.splitlines():
        name, tab, path = line.partition("\t")
        path = re.sub(r"\\u([0-9a-f]{4})", lambda found: chr(int(found.group(1), 16)), path)
        path = re.sub(r"\b0x([0-9a-f]+)", lambda found: str(int(found.group(1), 16)), path.lower())
        lines.append(name + tab + path.replace("fvvol(", "fv("))
    return lines
