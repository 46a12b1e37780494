# SPDX-License-Identifier: MIT
"""Makes the initramfs of the guests: busybox, the kernel modules that they need, the command with its libraries."""
import gzip
import os
import re
import stat
import subprocess
from pathlib import Path

MODULES = ["ahci", "sd_mod", "virtio_pci", "virtio_scsi", "nvme", "efivarfs"]
MORE_MODULES = ["virtio_blk", "xhci_pci", "usb_storage"]  # loaded when they are asked for
RARE_MODULES = ["ata_piix", "ehci_pci", "uhci_hcd", "uas", "sdhci_pci", "mmc_block", "vmw_pvscsi", "mptsas", "sym53c8xx",
                "am53c974", "megaraid_sas"]  # the same


def module_name(file):
    return re.sub(r"\.ko.*", "", Path(file).name).replace("-", "_")


def modules_of(version):
    """The modules of a kernel: what each loadable one needs, by file, and the names of those that are built in."""
    folder = Path("/lib/modules", version)
    needs = {}
    for line in (folder / "modules.dep").read_text().splitlines():
        module, _, others = line.partition(":")
        needs[module] = others.split()
    built_in = {module_name(line) for line in (folder / "modules.builtin").read_text().splitlines()}
    return needs, built_in


def has_what_guests_need(version):
    if not os.access(f"/boot/vmlinuz-{version}", os.R_OK) or not Path("/lib/modules", version, "modules.dep").exists():
        return False
    needs, built_in = modules_of(version)
    return {*MODULES, *MORE_MODULES, *RARE_MODULES} <= {module_name(module) for module in needs} | built_in


def newest_kernel():
    """The version of the newest installed kernel that the guests can run on; None when there is none."""

    def by_number(version):
        return [int(part) for part in re.findall(r"\d+", version)]

    versions = [image.name.removeprefix("vmlinuz-") for image in Path("/boot").glob("vmlinuz-*")]
    return max(filter(has_what_guests_need, versions), key=by_number, default=None)


def modules_in_order(version, names):
    """The files of the named modules and of all that they need, each after what it needs."""
    needs, _ = modules_of(version)
    by_name = {module_name(module): module for module in needs}
    order = []

    def add(module):
        if module not in order:
            for other in reversed(needs[module]):
                add(other)
            order.append(module)

    # sd_mod finds the module of its checksums by name only if it is loaded; newer kernels have it built in.
    for name in ["crct10dif_generic", *names]:
        if name in by_name:
            add(by_name[name])
    return [Path("/lib/modules", version, module) for module in order]


def busybox_is_static():
    """Whether busybox runs without a C library: `ldd` refuses such a program."""
    return Path("/bin/busybox").exists() and subprocess.run(["ldd", "/bin/busybox"], capture_output=True).returncode != 0


def loaded_later(file):
    """What a library says in its note (.note.dlopen) about those that it loads itself."""
    notes = re.findall(rb'FDO\0\[.*?"soname":\[(.*?)\]', Path(file).read_bytes())
    return [name for note in notes for name in re.findall(r'"(.*?)"', note.decode())]


def libraries_of(programs, also=()):
    """The shared libraries that the programs load, as they are found on this machine: name in the guest to file."""
    libraries = {}
    for program in programs:
        listing = subprocess.run(["ldd", program], check=True, capture_output=True, text=True,
                                 env={**os.environ, "LD_PRELOAD": " ".join(also)}).stdout
        for line in listing.splitlines():
            if "not found" in line:
                raise RuntimeError(f"{program}: {line.strip()}")
            found = re.fullmatch(r"\s*(?:(\S+) => )?(/.+) \(0x[0-9a-f]+\)", line)
            if found:
                name, file = found.groups()
                libraries[f"lib/{name}" if name else file.lstrip("/")] = file
    later = {name for file in libraries.values() for name in loaded_later(file)} - set(also)
    return libraries_of(programs, [*also, *sorted(later)]) if later else libraries


class Archive:
    """A cpio archive in the form that the kernel unpacks ("newc")."""

    def __init__(self):
        self.data = bytearray()
        self.folders = set()
        self.inode = 0

    def _entry(self, name, mode, content=b"", device=(0, 0)):
        self.inode += 1
        numbers = [self.inode, mode, 0, 0, 1, 0, len(content), 0, 0, *device, len(name) + 1, 0]
        self.data += b"070701" + b"".join(b"%08x" % number for number in numbers) + name.encode() + b"\0"
        self._pad()
        self.data += content
        self._pad()

    def _pad(self):
        self.data += bytes(-len(self.data) % 4)

    def folder(self, name):
        if name in ("", ".") or name in self.folders:
            return
        self.folder(os.path.dirname(name))
        self.folders.add(name)
        self._entry(name, stat.S_IFDIR | 0o755)

    def file(self, name, content, mode=0o755):
        self.folder(os.path.dirname(name))
        self._entry(name, stat.S_IFREG | mode, content)

    def console(self, name):
        self.folder(os.path.dirname(name))
        self._entry(name, stat.S_IFCHR | 0o600, device=(5, 1))

    def end(self):
        self._entry("TRAILER!!!", 0)
        return bytes(self.data)


def make(programs, guest_init, version):
    """The compressed initramfs with the programs and the libraries that they load."""
    archive = Archive()
    for folder in ["proc", "sys", "dev", "tmp", "lib/modules"]:
        archive.folder(folder)
    archive.console("dev/console")
    archive.file("init", Path(guest_init).read_bytes())
    archive.file("bin/busybox", Path("/bin/busybox").read_bytes())
    for program in programs:
        archive.file(f"bin/{Path(program).name}", Path(program).read_bytes())
    for name, file in libraries_of(programs).items():
        archive.file(name, Path(file).read_bytes())
    modules = modules_in_order(version, MODULES)
    more = [module for module in modules_in_order(version, MORE_MODULES) if module not in modules]
    rare = [module for module in modules_in_order(version, RARE_MODULES) if module not in [*modules, *more]]
    for module in [*modules, *more, *rare]:
        archive.file(f"lib/modules/{module.name}", module.read_bytes(), 0o644)
    for file, listed in ("order", modules), ("more", more), ("rare", rare):
        archive.file(f"lib/modules/{file}", "".join(f"{module.name}\n" for module in listed).encode(), 0o644)
    return gzip.compress(archive.end(), 1, mtime=0)
