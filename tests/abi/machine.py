# SPDX-License-Identifier: MIT
"""A folder laid out like a machine's root, with firmware variables, looked at without libovra."""
import os
import struct

GLOBAL = "8be4df61-93ca-11d2-aa0d-00e098032b8c"
END = bytes.fromhex("7fff0400")


def file_path(text):
    """A packed device path of one file-path node."""
    name = text.encode("utf-16-le") + b"\0\0"
    return struct.pack("<BBH", 4, 4, 4 + len(name)) + name + END


def load_option(description, path, attributes=1, optional_data=b""):
    text = description.encode("utf-16-le", "surrogatepass") + b"\0\0"
    return struct.pack("<IH", attributes, len(path)) + text + path + optional_data


def environment(root, **more):
    """For a program that is to work on the machine of that root, and to say on standard error what fails."""
    kept = {name: value for name, value in os.environ.items() if not name.startswith(("OVRA_", "HWPLAT_", "LD_"))}
    return {**kept, "HWPLAT_ROOT": root, "OVRA_PATH_EPRINT": "1", **more}


class Machine:
    def __init__(self, root):
        self.root = root
        self.folder = os.path.join(root, "sys/firmware/efi/efivars")
        os.makedirs(self.folder)

    def file(self, name, vendor=GLOBAL):
        return os.path.join(self.folder, f"{name}-{vendor}")

    def write(self, name, data, attributes=7):
        with open(self.file(name), "wb") as file:
            file.write(struct.pack("<I", attributes) + data)

    def read(self, name, vendor=GLOBAL):
        """(attributes, data), or None when there is no such variable."""
        try:
            with open(self.file(name, vendor), "rb") as file:
                content = file.read()
        except FileNotFoundError:
            return None
        return struct.unpack("<I", content[:4])[0], content[4:]

    def names(self):
        """The global variables, sorted."""
        end = "-" + GLOBAL
        return sorted(name.removesuffix(end) for name in os.listdir(self.folder) if name.endswith(end))

    def order(self):
        attributes, data = self.read("BootOrder")
        assert attributes == 7, attributes
        return [f"Boot{number:04X}" for number, in struct.iter_unpack("<H", data)]

    def environment(self, **more):
        return environment(self.root, **more)
