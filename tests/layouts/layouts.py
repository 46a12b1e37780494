#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""States the layout of every node kind once more and compares with what libovra makes of a text.

usage: layouts.py LIBOVRA

A layout is a list of fields: name, offset from the start of the node, format of struct. Formats are little-endian
unless they say otherwise; "tail" is what goes on to the end of the node. Each keyword is encoded with values that
differ in every byte, so that a field in the wrong place, of the wrong width or in the wrong order is seen; bytes of
the node that belong to no field have to be 0. Nothing here is shared with the library.
"""
import ctypes
import struct
import sys
import unittest
import uuid

GUID = uuid.UUID("00112233-4455-6677-8899-aabbccddeeff")
TAIL = "tail"

VENDOR = [("guid", 4, "16s"), ("data", 20, TAIL)]
USB_CLASS = [("vendor_id", 4, "H"), ("product_id", 6, "H"), ("dev_class", 8, "B"), ("dev_sub_class", 9, "B"),
             ("protocol", 10, "B")]
ACPI = [("hid", 4, "I"), ("uid", 8, "I")]
RAW = [("data", 4, TAIL)]

# record: type, subtype, length without its tail, fields
LAYOUTS = {
    "pci": (1, 1, 6, [("function_number", 4, "B"), ("device_number", 5, "B")]),
    "pccard": (1, 2, 5, [("function", 4, "B")]),
    "memmap": (1, 3, 24, [("memory_type", 4, "I"), ("start", 8, "Q"), ("end", 16, "Q")]),
    "venhw": (1, 4, 20, VENDOR),
    "ctrl": (1, 5, 8, [("ctrl_number", 4, "I")]),
    "acpi": (2, 1, 12, ACPI),
    "acpiex": (2, 2, 16, ACPI + [("cid", 12, "I"), ("strings", 16, TAIL)]),
    "acpiadr": (2, 3, 4, [("adr", 4, TAIL)]),
    "atapi": (3, 1, 8, [("channel", 4, "B"), ("drive", 5, "B"), ("lun", 6, "H")]),
    "scsi": (3, 2, 8, [("target", 4, "H"), ("lun", 6, "H")]),
    "fibre": (3, 3, 20, [("wwn", 4, "Q"), ("lun", 12, "Q")]),
    "i1394": (3, 4, 16, [("guid", 8, "8s")]),
    "usb": (3, 5, 6, [("port", 4, "B"), ("interface", 5, "B")]),
    "i2o": (3, 6, 8, [("target_id", 4, "I")]),
    "ib": (3, 9, 48, [("flags", 4, "I"), ("guid", 8, "16s"), ("serviceid", 24, "Q"), ("targetid", 32, "Q"),
                      ("deviceid", 40, "Q")]),
    "venmsg": (3, 10, 20, VENDOR),
    "uartflow": (3, 10, 21, [("guid", 4, "16s"), ("value", 20, "B")]),
    "sas_msg": (3, 10, 44, [("guid", 4, "16s"), ("reserved", 20, "I"), ("address", 24, "Q"), ("lun", 32, "Q"),
                            ("sassata", 40, "H"), ("rtp", 42, "H")]),
    "macaddr": (3, 11, 37, [("mac_addr", 4, "32s"), ("iff_type", 36, "B")]),
    "ipv4": (3, 12, 27, [("local_addr", 4, "4s"), ("remote_addr", 8, "4s"), ("local_port", 12, "H"),
                         ("remote_port", 14, "H"), ("protocol", 16, "H"), ("type_ip_addr", 18, "B"),
                         ("gateway_addr", 19, "4s"), ("subnet_addr", 23, "4s")]),
    "ipv6": (3, 13, 60, [("local_addr", 4, "16s"), ("remote_addr", 20, "16s"), ("local_port", 36, "H"),
                         ("remote_port", 38, "H"), ("protocol", 40, "H"), ("ip_addr_origin", 42, "B"),
                         ("prefix_length", 43, "B"), ("gateway_addr", 44, "16s")]),
    "uart": (3, 14, 19, [("reserved", 4, "I"), ("baud", 8, "Q"), ("databits", 16, "B"), ("parity", 17, "B"),
                         ("stopbits", 18, "B")]),
    "usb_class": (3, 15, 11, USB_CLASS),
    "usb_wwid": (3, 16, 10, [("if_number", 4, "H"), ("vendor_id", 6, "H"), ("product_id", 8, "H"),
                             ("serial", 10, TAIL)]),
    "lun": (3, 17, 5, [("lun", 4, "B")]),
    "sata": (3, 18, 10, [("port", 4, "H"), ("port_mult", 6, "H"), ("lun", 8, "H")]),
    "iscsi": (3, 19, 18, [("protocol", 4, "H"), ("options", 6, "H"), ("lun", 8, "8s"), ("group_tag", 16, "H"),
                          ("node_target_name", 18, TAIL)]),
    "vlan": (3, 20, 6, [("vlan", 4, "H")]),
    "fibreex": (3, 21, 24, [("wwn", 8, "8s"), ("lun", 16, "8s")]),
    "sas_ex": (3, 22, 24, [("address", 4, ">Q"), ("lun", 12, ">Q"), ("sassata", 20, "H"), ("rtp", 22, "H")]),
    "hard_drive": (4, 1, 42, [("part_number", 4, "I"), ("part_start", 8, "Q"), ("part_size", 16, "Q"),
                              ("part_sig", 24, "16s"), ("part_format", 40, "B"), ("sig_type", 41, "B")]),
    "cdrom": (4, 2, 24, [("boot_entry", 4, "I"), ("part_start", 8, "Q"), ("part_size", 16, "Q")]),
    "venmedia": (4, 3, 20, VENDOR),
    "file": (4, 4, 4, [("path_name", 4, TAIL)]),
    "media_protocol": (4, 5, 20, [("guid", 4, "16s")]),
    "offset": (4, 6, 24, [("reserved", 4, "I"), ("start", 8, "Q"), ("end", 16, "Q")]),
    "bbs": (5, 1, 8, [("device_type", 4, "H"), ("status_flags", 6, "H"), ("description", 8, TAIL)]),
}


def guid(text):
    return uuid.UUID(text).bytes_le


def ucs2(text):
    return text.encode("utf-16-le") + b"\0\0"


def eisa(text):
    letters = [ord(letter) - ord("A") + 1 for letter in text[:3]]
    return int(text[3:], 16) << 16 | letters[0] << 10 | letters[1] << 5 | letters[2]


A, B, C = 0x0102030405060708, 0x1112131415161718, 0x2122232425262728
EIGHT = bytes(range(0x31, 0x39))
SIXTEEN = bytes(range(0x41, 0x51))
G = GUID.bytes_le
SAS_GUID = bytes.fromhex("d487ddd4008b11d9afdc001083ffca4d")

# text, record, values of its fields (0 where none is given)
CASES = [
    ("Path(0x11,0x22,0800deadbeef)", (0x11, 0x22, 4, RAW), {"data": bytes.fromhex("deadbeef")}),
    ("Pci(0x1e,0x5)", "pci", {"function_number": 5, "device_number": 0x1e}),
    ("pcCard(0x81)", "pccard", {"function": 0x81}),
    (f"MemoryMapped(0x81828384,{A:#x},{B:#x})", "memmap", {"memory_type": 0x81828384, "start": A, "end": B}),
    (f"VenHw({GUID},0102ff)", "venhw", {"guid": G, "data": b"\x01\x02\xff"}),
    (f"VenHw({GUID})", "venhw", {"guid": G}),
    ("Ctrl(0x81828384)", "ctrl", {"ctrl_number": 0x81828384}),
    ("Acpi(ABC1234,0x81828384)", "acpi", {"hid": eisa("ABC1234"), "uid": 0x81828384}),
    ("AcpiEx(ABC1234,DEF5678,GHI9ABC)", "acpiex",
     {"hid": eisa("ABC1234"), "cid": eisa("DEF5678"), "uid": eisa("GHI9ABC"), "strings": b"\0\0\0"}),
    ("AcpiEx(HIDSTR=hid,UIDSTR=uid,CIDSTR=cid)", "acpiex", {"strings": b"hid\0uid\0cid\0"}),
    ("AcpiExp(ABC1234,DEF5678,ignored)", "acpiex",
     {"hid": eisa("ABC1234"), "cid": eisa("DEF5678"), "strings": b"\0\0\0"}),
    ("AcpiAdr(0x81828384,1,0x91929394)", "acpiadr", {"adr": struct.pack("<3I", 0x81828384, 1, 0x91929394)}),
    ("Ata(Secondary,Slave,0x8182)", "atapi", {"channel": 1, "drive": 1, "lun": 0x8182}),
    ("Ata(Primary,Slave,0x8182)", "atapi", {"drive": 1, "lun": 0x8182}),
    ("Scsi(0x8182,0x9192)", "scsi", {"target": 0x8182, "lun": 0x9192}),
    (f"Fibre({A:#x},{B:#x})", "fibre", {"wwn": A, "lun": B}),
    (f"FibreEx({EIGHT.hex()},{SIXTEEN[:8].hex()})", "fibreex", {"wwn": EIGHT, "lun": SIXTEEN[:8]}),
    (f"I1394({EIGHT.hex()})", "i1394", {"guid": EIGHT}),
    ("USB(0x81,0x92)", "usb", {"port": 0x81, "interface": 0x92}),
    ("I2O(0x81828384)", "i2o", {"target_id": 0x81828384}),
    (f"Infiniband(0x81828384,{SIXTEEN.hex()},{A:#x},{B:#x},{C:#x})", "ib",
     {"flags": 0x81828384, "guid": SIXTEEN, "serviceid": A, "targetid": B, "deviceid": C}),
    (f"VenMsg({GUID},0102ff)", "venmsg", {"guid": G, "data": b"\x01\x02\xff"}),
    ("VenPcAnsi()", "venmsg", {"guid": guid("e0c14753-f9be-11d2-9a0c-0090273fc14d")}),
    ("VenVt100()", "venmsg", {"guid": guid("dfa66065-b419-11d3-9a2d-0090273fc14d")}),
    ("VenVt100Plus()", "venmsg", {"guid": guid("7baec70b-57e0-4c76-8e87-2f9e28088343")}),
    ("VenUtf8()", "venmsg", {"guid": guid("ad15a0d6-8bec-4acf-a073-d01de77e2d88")}),
    ("DebugPort()", "venmsg", {"guid": guid("eba4e8d2-3858-41ec-a281-2647ba9660d0")}),
    ("UartFlowCtrl(0x81)", "uartflow", {"guid": guid("37499a9d-542f-4c89-a026-35da142094e4"), "value": 0x81}),
    (f"SAS({A:#x},{B:#x},0x8182,SATA,External,Expanded,3,0x91929394)", "sas_msg",
     {"guid": SAS_GUID, "reserved": 0x91929394, "address": A, "lun": B, "sassata": 0x0271, "rtp": 0x8182}),
    (f"SasEx({A:x},{B:x},0x8182,SAS,External,Direct,256)", "sas_ex",
     {"address": A, "lun": B, "sassata": 0xff21, "rtp": 0x8182}),
    (f"MAC({bytes(range(0x51, 0x71)).hex()},0x81)", "macaddr",
     {"mac_addr": bytes(range(0x51, 0x71)), "iff_type": 0x81}),
    ("MAC(515253545556,1)", "macaddr", {"mac_addr": b"QRSTUV", "iff_type": 1}),
    ("IPv4(1.2.3.4,0x8182,0x91,5.6.7.8,9.10.11.12,13.14.15.16)", "ipv4",
     {"remote_addr": bytes([1, 2, 3, 4]), "protocol": 0x8182, "type_ip_addr": 0x91, "local_addr": bytes([5, 6, 7, 8]),
      "gateway_addr": bytes([9, 10, 11, 12]), "subnet_addr": bytes([13, 14, 15, 16])}),
    ("IPv6(102:304:506:708:90a:b0c:d0e:f10,0x8182,0x91,1112:1314:1516:1718:191a:1b1c:1d1e:1f20,::1)", "ipv6",
     {"remote_addr": bytes(range(1, 17)), "protocol": 0x8182, "ip_addr_origin": 0x91,
      "local_addr": bytes(range(17, 33))}),
    (f"Uart({A:#x},0x81,0x92,0xa3)", "uart", {"baud": A, "databits": 0x81, "parity": 0x92, "stopbits": 0xa3}),
    ("UsbClass(0x8182,0x9192,0xa1,0xb1,0xc1)", "usb_class",
     {"vendor_id": 0x8182, "product_id": 0x9192, "dev_class": 0xa1, "dev_sub_class": 0xb1, "protocol": 0xc1}),
    # The length counts one byte more than there is text; that byte is 0.
    ("UsbWwid(0x8182,0x91,0,WWID)", "usb_wwid",
     {"if_number": 0x91, "vendor_id": 0x8182, "product_id": 0x91, "serial": ucs2("WWID") + b"\0"}),
    ("Unit(0x81)", "lun", {"lun": 0x81}),
    # The port is the third argument, and the lun stays 0.
    ("Sata(0x8182,0x9192,0xa1a2)", "sata", {"port": 0xa1a2, "port_mult": 0x9192}),
    (f"iSCSI(iqn,0x8182,{EIGHT.hex()},CRC32C,CRC32C,CHAP_UNI,TCP)", "iscsi",
     {"options": 0x1082, "lun": EIGHT, "group_tag": 0x8182, "node_target_name": ucs2("iqn")}),
    ("Vlan(0x0abc)", "vlan", {"vlan": 0x0abc}),
    (f"HD(0x81828384,GPT,{GUID},{A:#x},{B:#x})", "hard_drive",
     {"part_number": 0x81828384, "part_start": A, "part_size": B, "part_sig": G, "part_format": 2, "sig_type": 2}),
    (f"HD(0x81828384,MBR,0x91929394,{A:#x},{B:#x})", "hard_drive",
     {"part_number": 0x81828384, "part_start": A, "part_size": B, "part_sig": struct.pack("<I12x", 0x91929394),
      "part_format": 1, "sig_type": 1}),
    (f"CDROM(Start={A:#x},Size={B:#x})", "cdrom", {"part_start": A, "part_size": B}),
    (f"VenMedia({GUID},0102ff)", "venmedia", {"guid": G, "data": b"\x01\x02\xff"}),
    (f"Media({GUID})", "media_protocol", {"guid": G}),
    (f"Offset({A:#x},{B:#x})", "offset", {"start": A, "end": B}),
    ("BBS(0x8182,Disk,0x9192)", "bbs", {"device_type": 0x8182, "status_flags": 0x9192, "description": b"Disk\0"}),
]
for keyword, product in (("PciRoot", "PNP0A03"), ("PcieRoot", "PNP0A08"), ("Floppy", "PNP0604"),
                         ("Keyboard", "PNP0301"), ("Serial", "PNP0501"), ("ParallelPort", "PNP0401")):
    CASES.append((f"{keyword}(0x81828384)", "acpi", {"hid": eisa(product), "uid": 0x81828384}))
for keyword, node_type in (("HardwarePath", 1), ("AcpiPath", 2), ("MessagingPath", 3), ("MediaPath", 4),
                           ("BbsPath", 5)):
    CASES.append((f"{keyword}(0x22,0800deadbeef)", (node_type, 0x22, 4, RAW), {"data": bytes.fromhex("deadbeef")}))
for keyword, dev_class in (("UsbAudio", 0x01), ("UsbCDCControl", 0x02), ("UsbHID", 0x03), ("UsbImage", 0x06),
                           ("UsbPrinter", 0x07), ("UsbMassStorage", 0x08), ("UsbHub", 0x09), ("UsbCDCData", 0x0a),
                           ("UsbSmartCard", 0x0b), ("UsbVideo", 0x0e), ("UsbDiagnostic", 0xdc),
                           ("UsbWireless", 0xe0)):
    CASES.append((f"{keyword}(0x8182,0x9192,0xb1,0xc1)", "usb_class",
                  {"vendor_id": 0x8182, "product_id": 0x9192, "dev_class": dev_class, "dev_sub_class": 0xb1,
                   "protocol": 0xc1}))
for keyword, sub_class in (("UsbDeviceFirmwareUpdate", 1), ("UsbIrdaBridge", 2), ("UsbTestAndMeasurement", 3)):
    CASES.append((f"{keyword}(0x8182,0x9192,0xb1,0xc1)", "usb_class",
                  {"vendor_id": 0x8182, "product_id": 0x9192, "dev_class": 0xfe, "dev_sub_class": sub_class,
                   "protocol": 0xc1}))
KEYWORDS = 69


def lay_out(record, values):
    """The node of a record with these values."""
    node_type, subtype, size, fields = LAYOUTS[record] if isinstance(record, str) else record
    tails = [name for name, _, form in fields if form == TAIL]
    tail = values.get(tails[0], b"") if tails else b""
    node = bytearray(size + len(tail))
    struct.pack_into("<BBH", node, 0, node_type, subtype, len(node))
    for name, offset, form in fields:
        if form == TAIL:
            node[offset:] = tail
        elif name in values:
            struct.pack_into(form if form[0] in "<>" else "<" + form, node, offset, values[name])
    unknown = set(values) - {name for name, _, _ in fields}
    if unknown:
        raise KeyError(unknown)
    return bytes(node)


class Path(ctypes.Structure):
    _fields_ = [("device_path", ctypes.c_char_p), ("file_path", ctypes.c_char_p)]


class Library:
    def __init__(self, file):
        self.ovra = ctypes.CDLL(file)
        self.ovra.ovra_epath_encode.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.POINTER(Path)), ctypes.c_int,
                                                ctypes.POINTER(ctypes.c_void_p), ctypes.POINTER(ctypes.c_int)]
        self.free = ctypes.CDLL(None).free
        self.free.argtypes = [ctypes.c_void_p]

    def encode(self, device, file=None):
        """The packed path, or None when the text is refused."""
        path = Path(device.encode(), None if file is None else file.encode())
        paths = (ctypes.POINTER(Path) * 2)(ctypes.pointer(path), None)
        packed = ctypes.c_void_p()
        length = ctypes.c_int(-1)
        if self.ovra.ovra_epath_encode(None, paths, 0, ctypes.byref(packed), ctypes.byref(length)) != 0:
            return None
        given = ctypes.string_at(packed, length.value)
        self.free(packed)
        return given


library = None
END = b"\x7f\xff\x04\x00"


class Layouts(unittest.TestCase):
    def test_each_keyword(self):
        for text, record, values in CASES:
            with self.subTest(text):
                given = library.encode(text)
                self.assertIsNotNone(given)
                self.assertEqual(given.hex(" "), (lay_out(record, values) + END).hex(" "))

    def test_a_file(self):
        given = library.encode("", "\\EFI\\B\u00e9")
        self.assertEqual(given, lay_out("file", {"path_name": ucs2("\\EFI\\B\u00e9")}) + END)

    def test_no_keyword_is_left_out(self):
        self.assertEqual(len({text.split("(")[0] for text, _, _ in CASES}), KEYWORDS)

    def test_no_record_is_left_out(self):
        self.assertEqual({record for _, record, _ in CASES if isinstance(record, str)} | {"file"}, set(LAYOUTS))

    def test_fields_do_not_overlap(self):
        for record, (_, _, size, fields) in LAYOUTS.items():
            with self.subTest(record):
                used = 4
                for _, offset, form in fields:
                    self.assertGreaterEqual(offset, used)
                    used = offset + (0 if form == TAIL else struct.calcsize(form if form[0] in "<>" else "<" + form))
                self.assertEqual(used, size)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    library = Library(sys.argv.pop())
    unittest.main()
