#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: images.py LIBDEVNS OVRA

Files of variables as another program sees them: a reader and writer of its own follows random changes that libdevns and
the command make in images of real firmware (where Debian's ovmf is installed), in small ones, and in U-Boot's file.
"""
import ctypes
import json
import os
import random
import struct
import subprocess
import sys
import tempfile
import unittest
import uuid
import zlib
from pathlib import Path

GLOBAL = uuid.UUID("8be4df61-93ca-11d2-aa0d-00e098032b8c")
WITH_SIGNATURES = uuid.UUID("aaf32c78-947b-439a-a180-2e144ec37792")
PLAIN = uuid.UUID("ddcf3616-3275-4164-98b6-fe85707ffe7d")
OF_VARIABLES = uuid.UUID("fff12b8d-7696-4c8b-a985-2747075b4f50")
ERROR = 1 << 63
INVALID_PARAMETER, OUT_OF_RESOURCES, NOT_FOUND = ERROR | 2, ERROR | 9, ERROR | 14
TEMPLATES = Path("/usr/share/OVMF")
LIBRARY, OVRA = sys.argv.pop(1), sys.argv.pop(1)


class Volume:
    """The variable store of a firmware volume, read once from a file's bytes."""

    def __init__(self, data):
        self.data = data
        header = struct.unpack_from("<16s16sQ4sIHH", data)
        assert header[1] == OF_VARIABLES.bytes_le and header[3] == b"_FVH"
        assert sum(struct.unpack_from(f"<{header[5] // 2}H", data)) & 0xffff == 0
        self.begin = header[5]
        signature, size, form, state = struct.unpack_from("<16sIBB", data, self.begin)
        assert (form, state) == (0x5a, 0xfe)
        self.end = self.begin + size
        self.form = {WITH_SIGNATURES.bytes_le: "<HBBI28sII16s", PLAIN.bytes_le: "<HBBIII16s"}[signature]
        self.all = list(self.walk())
        self.free = self.all[-1][1] if self.all else self.begin + 28
        assert data[self.free:self.end] == b"\xff" * (self.end - self.free)

    def walk(self):
        """Each variable ever written: its state, where it ends, its key, its value and its bytes but for the state."""
        at = self.begin + 28
        size = struct.calcsize(self.form)
        while at + size <= self.end:
            start, state, _, attributes, *_, name_size, data_size, vendor = struct.unpack_from(self.form, self.data, at)
            if start != 0x55aa:
                break
            middle = at + size + name_size
            key = (self.data[at + size:middle].decode("utf-16-le").rstrip("\0"), uuid.UUID(bytes_le=vendor))
            end = middle + data_size + 3 & ~3
            yield state, end, key, (attributes, self.data[middle:middle + data_size]), self.data[at + 3:middle + data_size]
            at = end

    def values(self):
        live = {}
        for wanted in (0x3e, 0x3f):
            for state, _, key, value, _ in self.all:
                if state == wanted:
                    live[key] = value
        return live

    def records(self):
        """The bytes of what counts, without the state."""
        return {key: raw for state, _, key, _, raw in self.all if state in (0x3e, 0x3f)}

    def around(self):
        return self.data[:self.begin + 28], self.data[self.end:]


class UBoot:
    """U-Boot's file of variables."""

    def __init__(self, data):
        reserved, magic, length, crc = struct.unpack_from("<Q8sII", data)
        assert (reserved, magic, length, crc) == (0, b"UbEfiVa\1", len(data), zlib.crc32(data[24:]))
        self.raw, self.live = {}, {}
        at = 24
        while at < length:
            size, attributes, _, vendor = struct.unpack_from("<IIQ16s", data, at)
            middle = at + 32
            while data[middle:middle + 2] != b"\0\0":
                middle += 2
            key = (data[at + 32:middle].decode("utf-16-le"), uuid.UUID(bytes_le=vendor))
            assert key not in self.live
            self.live[key] = (attributes, data[middle + 2:middle + 2 + size])
            end = middle + 2 + size + 7 & ~7
            self.raw[key] = data[at:end]
            at = end

    def values(self):
        return self.live

    def records(self):
        return self.raw

    def around(self):
        return b""


def volume(store_size=0xe000 - 72, length=0x20000, variables=b""):
    header = bytearray(struct.pack("<16s16sQ4sIHHHBBIIII", b"", OF_VARIABLES.bytes_le, length, b"_FVH", 0x4feff, 72, 0, 0,
                                   0, 2, length // 4096, 4096, 0, 0))
    struct.pack_into("<H", header, 50, -sum(struct.unpack("<36H", header)) & 0xffff)
    store = struct.pack("<16sIBBHI", WITH_SIGNATURES.bytes_le, store_size, 0x5a, 0xfe, 0, 0) + variables
    return (bytes(header) + store).ljust(length, b"\xff")


def in_volume(name, data, attributes):
    name = name.encode("utf-16-le") + b"\0\0"
    raw = struct.pack("<HBBI28sII16s", 0x55aa, 0x3f, 0, attributes, b"\1" * 28 if attributes & 0x30 else b"", len(name),
                      len(data), GLOBAL.bytes_le) + name + data
    return raw + b"\xff" * (-len(raw) % 4)


def uboot_file(variables=()):
    body = b""
    for name, data, attributes in variables:
        body += struct.pack("<IIQ16s", len(data), attributes, 99, GLOBAL.bytes_le) + name.encode("utf-16-le") + b"\0\0" + data
        body += b"\0" * (-len(body) % 8)
    return struct.pack("<Q8sII", 0, b"UbEfiVa\1", 24 + len(body), zlib.crc32(body)) + body


class Args(ctypes.Structure):
    _fields_ = [("name", ctypes.c_void_p), ("guid", ctypes.c_void_p), ("attributes", ctypes.c_void_p),
                ("size", ctypes.c_void_p), ("data", ctypes.c_void_p), ("ret", ctypes.c_void_p), ("name_size", ctypes.c_uint64)]


class Services:
    """The runtime services through libdevns, opened for each request."""
    library = ctypes.CDLL(LIBRARY, use_errno=True)

    def set(self, key, attributes, data):
        fd = self.library.devns_open(b"/devices/pseudo/ovra@0:ovra", os.O_RDWR)
        assert fd >= 0, os.strerror(ctypes.get_errno())
        name = ctypes.create_string_buffer(key[0].encode("utf-16-le") + b"\0")
        guid = ctypes.create_string_buffer(key[1].bytes_le, 16)
        bits, size, ret = ctypes.c_uint32(attributes), ctypes.c_uint64(len(data)), ctypes.c_uint64(1)
        buffer = ctypes.create_string_buffer(data, len(data) or 1)
        args = Args(*(ctypes.addressof(each) for each in (name, guid, bits, size, buffer, ret)), len(name))
        assert self.library.devns_ioctl(fd, 3, ctypes.byref(args)) == 0
        assert self.library.devns_close(fd) == 0
        return ret.value


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.path = Path(self.folder.name) / "VARS.fd"
        os.environ["HWPLAT_VARS"] = str(self.path)
        os.environ.pop("HWPLAT_ROOT", None)

    def ovra(self, *words):
        done = subprocess.run([OVRA, "--vars", str(self.path), *words], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, (words, done.stderr))
        return done.stdout

    def check(self, before, after, expected, changed):
        """What counts is `expected`; all but the changed variables are byte for byte what they were."""
        self.assertEqual(after.values(), expected)
        self.assertEqual(after.around(), before.around())
        kept = {key: raw for key, raw in before.records().items() if key not in changed}
        self.assertEqual({key: after.records()[key] for key in kept}, kept)
        self.assertEqual(os.listdir(self.folder.name), ["VARS.fd"])

    def change_at_random(self, reader, seed, largest, times=30):
        """Random writes, appends and deletions through libdevns, each followed by the model."""
        chance = random.Random(seed)
        services = Services()
        refused = 0
        for _ in range(times):
            before = reader(self.path.read_bytes())
            values = dict(before.values())
            own = [key for key in values if key[0].startswith("Own")]
            key = chance.choice(own) if own and chance.random() < 0.5 else (f"Own{chance.randrange(8)}", GLOBAL)
            data = chance.randbytes(chance.randrange(1, largest))
            deed = chance.choice(("write", "write", "append", "delete"))
            status = services.set(key, {"write": 7, "append": 0x47, "delete": 7}[deed], b"" if deed == "delete" else data)
            if status == OUT_OF_RESOURCES:
                refused += 1
            elif deed == "delete":
                self.assertEqual(status, 0 if key in values else NOT_FOUND)
                values.pop(key, None)
            elif status == INVALID_PARAMETER:
                self.assertGreater(len(data) + len(values.get(key, (7, b""))[1]), 7168)
            else:
                self.assertEqual(status, 0)
                values[key] = (7, (values[key][1] if deed == "append" and key in values else b"") + data)
            self.check(before, reader(self.path.read_bytes()), values, {key} if status == 0 else set())
        return refused

    def test_real_images_take_random_changes(self):
        templates = sorted(TEMPLATES.glob("OVMF_VARS*.fd"))
        if not templates:
            self.skipTest("no images of real firmware")
        for number, template in enumerate(templates):
            with self.subTest(template.name):
                self.path.write_bytes(template.read_bytes())
                refused = self.change_at_random(Volume, number, 6000)
                self.assertEqual(refused, 0)

    def test_small_store_is_reclaimed_and_never_loses_anything(self):
        key = in_volume("PK", b"key" * 30, 0x27)
        setup = in_volume("Setup", b"choice", 3)
        self.path.write_bytes(volume(2400, variables=key + setup))
        refused = self.change_at_random(Volume, 7, 500, 150)
        self.assertGreater(refused, 5)
        self.assertLess(refused, 100)

    def test_uboot_file_takes_random_changes(self):
        self.path.write_bytes(uboot_file([("PlatformLang", b"en-US", 7), ("db", b"key", 0x27)]))
        self.assertEqual(self.change_at_random(UBoot, 3, 5000, 60), 0)

    def change_by_command(self, reader):
        first = reader(self.path.read_bytes())
        for number in range(6):
            self.ovra("create", "--desc", f"Option {number}", "--devpath", "/PciRoot(0)/Pci(0x1F,2)/Sata(0,0,0)", "--file", f"\\EFI\\{number}.efi")
        created = [each["option"] for each in json.loads(self.ovra("--json", "list"))["options"]
                   if each["description"].startswith("Option")]
        self.assertEqual(len(created), 6)
        self.ovra("remove", created[2])
        self.ovra("set", created[3], "--desc", "Renamed", "--inactive")
        self.ovra("next", created[0])
        self.ovra("order", "set", created[5], created[0])
        last = reader(self.path.read_bytes())
        order = b"".join(struct.pack("<H", int(created[at][4:], 16)) for at in (5, 0))
        values = last.values()
        self.assertEqual(values["BootOrder", GLOBAL], (7, order))
        self.assertEqual(values["BootNext", GLOBAL], (7, order[2:]))
        self.assertNotIn((created[2], GLOBAL), values)
        renamed = values[created[3], GLOBAL][1]
        self.assertEqual(struct.unpack_from("<I", renamed)[0] & 1, 0)
        self.assertEqual(renamed[6:].split(b"\0\0\0")[0] + b"\0", "Renamed".encode("utf-16-le"))
        touched = {(name, GLOBAL) for name in (*created, "BootOrder", "BootNext")}
        kept = {key: raw for key, raw in first.records().items() if key not in touched}
        self.assertEqual({key: last.records().get(key) for key in kept}, kept)
        self.assertEqual(first.around(), last.around())
        self.ovra("reset", "--yes")
        self.assertNotIn(("BootNext", GLOBAL), reader(self.path.read_bytes()).values())

    def test_command_changes_a_real_image(self):
        template = TEMPLATES / "OVMF_VARS_4M.ms.fd"
        if not template.exists():
            self.skipTest("no image of real firmware")
        self.path.write_bytes(template.read_bytes())
        self.change_by_command(Volume)

    def test_command_changes_a_small_image(self):
        self.path.write_bytes(volume())
        self.change_by_command(Volume)

    def test_command_changes_uboot_files(self):
        self.path.write_bytes(uboot_file([("PlatformLang", b"en-US", 7)]))
        self.change_by_command(UBoot)


if __name__ == "__main__":
    unittest.main()
