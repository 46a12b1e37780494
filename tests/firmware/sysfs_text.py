# SPDX-License-Identifier: MIT
"""What the guest's sysfs has of its disks, as the entries of a machine of tests/machines/."""
import posixpath
import re

# The files that the platform libraries read, by name, and the links.
FILES = """vendor device revision class hid uid modalias adr size logical_block_size removable hidden nsid eui wwid
ana_state state type port_no nr_pmp_links sas_address speed maxchild""".split()
LINKS = "firmware_node nvme*".split()

# Guest: a line for each file with its first line, for each link with its target.
DUMP = (
    "cd / && find sys/devices/pci* sys/devices/LNXSYSTM* sys/devices/virtual/nvme-subsystem -type f '('"
    + " -o".join(f" -name {name}" for name in FILES)
    + " ')' 2>/dev/null | while read -r file; do read -r text 2>/dev/null <$file && printf '%s\\t%s\\n' $file \"$text\"; "
    "done; find sys/devices/pci* sys/devices/virtual/nvme-subsystem -type l '('"
    + " -o".join(f" -name '{name}'" for name in LINKS)
    + " ')' 2>/dev/null | while read -r link; do printf '%s\\t-> %s\\n' $link $(readlink $link); done; "
    "for link in sys/bus/pci/devices/* sys/block/*; do printf '%s\\t-> %s\\n' $link $(readlink $link); done"
)

FUNCTION = re.compile(r"[0-9a-f]{4}:[0-9a-f]{2}:[0-9a-f]{2}\.[0-7]")
BRIDGE = re.compile(r"sys/devices/pci[0-9a-f]{4}:[0-9a-f]{2}")


class Dump:
    """The guest's answer to DUMP."""

    def __init__(self, text):
        entries = dict(line.split("\t", 1) for line in text.splitlines())
        self.links = {path: target[3:] for path, target in entries.items() if target.startswith("-> ")}
        self.files = {path: content for path, content in entries.items() if path not in self.links}

    def target(self, link):
        return posixpath.normpath(posixpath.join(posixpath.dirname(link), self.links[link]))

    def disks(self):
        """The places of block devices that are disks, paths that the kernel hides among them."""
        return [self.target(link) for link in self.links
                if link.startswith("sys/block/") and not re.match(r"(loop|ram|sr|fd)\d", posixpath.basename(link))]


def natural(path):
    return [int(part) if part.isdigit() else part for part in re.split(r"(\d+)", path)]


def below(folder, paths):
    return [path for path in paths if path.startswith(folder + "/")]


def above(disk):
    """The folders on the way to a disk."""
    parts = disk.split("/")
    return ["/".join(parts[:end]) for end in range(3, len(parts) + 1)]


def wanted_files(dump):
    """The files that say something of functions, bridges and disks."""
    wanted = set()
    for path in dump.files:
        folder, name = posixpath.split(path)
        if name in ("vendor", "device", "revision", "class") and FUNCTION.fullmatch(posixpath.basename(folder)):
            wanted.add(path)
    for disk in dump.disks():
        for name in ("removable", "hidden", "nsid", "eui", "wwid", "ana_state"):
            wanted.add(f"{disk}/{name}")
        for folder in above(disk)[:-1]:
            if re.search(r"/(\d+:\d+:\d+:\d+|mmc\d+:[0-9a-f]+)$", folder):
                wanted |= {f"{folder}/type", f"{folder}/sas_address"}
            elif re.search(r"/nvme\d+$", folder):
                wanted.add(f"{folder}/state")
            wanted |= set(below(f"{folder}/ata_port", dump.files))
            # The root hubs of a USB controller: each has an own row of ports.
            if re.search(r"/usb\d+$", folder):
                hubs = rf"{re.escape(posixpath.dirname(folder))}/usb\d+/(speed|maxchild)"
                wanted |= {path for path in dump.files if re.fullmatch(hubs, path)}
    # What is 0 where it is not there says nothing.
    usual = {path for path in wanted if re.search(r"/(hidden|removable)$", path) and dump.files.get(path) == "0"}
    return wanted & dump.files.keys() - usual


def wanted_links(dump):
    """The links to functions, from bridges to what the firmware says of them, and from subsystems to controllers."""
    found = {path for path in dump.links if path.startswith("sys/bus/pci/devices/")}
    for path in dump.links:
        folder, name = posixpath.split(path)
        if BRIDGE.fullmatch(folder) and name == "firmware_node" or "/nvme-subsystem/" in path:
            found.add(path)
    return found


def entries(text, images):
    """The lines of a machine: its sysfs, and its disks by `images`, the texts of these by name."""
    dump = Dump(text)
    lines = {}  # by folder
    for path in wanted_links(dump):
        lines.setdefault(posixpath.dirname(path), []).append(f"link {posixpath.basename(path)} {dump.links[path]}")
        if path.endswith("/firmware_node"):
            described = dump.target(path)
            for name in ("hid", "uid", "modalias"):
                lines.setdefault(described, []).append(f"file {name} {dump.files[f'{described}/{name}']}")
    for path in wanted_files(dump):
        lines.setdefault(posixpath.dirname(path), []).append(f"file {posixpath.basename(path)} {dump.files[path]}")
    for disk in dump.disks():
        block = dump.files[f"{disk}/queue/logical_block_size"]
        size = dump.files[f"{disk}/size"]
        lines.setdefault(posixpath.dirname(disk), []).append(
            f"disk {posixpath.basename(disk)} {size}" + ("" if block == "512" else f" {block}"))
    result = []
    for folder in sorted(lines, key=natural):
        result += [f"in {folder}", *(f"  {line}" for line in sorted(lines[folder], key=natural))]
    return [*result, *(f"image dev/{name} {image}" for name, image in images.items())]
