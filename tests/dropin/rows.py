# SPDX-License-Identifier: MIT
"""Command lines for beside.py, with the variables that are changed before."""
from typing import NamedTuple

from pair import CARD, MIRROR, numbers, option

NAMED = {"BootNext": numbers(2), "BootCurrent": numbers(1, attributes=6)}
GIVEN = b"in\0put"  # on standard input
CREATE = ["-c", "-d", "/dev/sdd"]
DRIVERS = {"DriverOrder": numbers(3, 4), "Driver0003": option("a"), "Driver0004": option("b", flags=0)}


def mirror(below, above, condition=0, version=1):
    return bytes([7, 0, 0, 0, version, below]) + above.to_bytes(2, "little") + bytes([condition])


CURRENT, REQUEST = f"MirrorCurrent-{MIRROR}", f"MirrorRequest-{MIRROR}"
MIRRORS = {CURRENT: mirror(0, 2500)}

SAME = [(words.split(), NAMED) for words in """
-n 7
-n 0003
-n 0x3
-n 9
-n zz
-n 2x
-n 10000
-n -1
-N
-N -n 1
-o 7,6,5,4,3,2,1,0
-o 0007,1,2,3,4,5,6,0x0
-o 1,1,1,1,2,2,2,2
-o 2,1,9
-o 2,,1
-o 2,
-o x
-o 2x
-o 2,zz
-o 10000
-O
-D
-t 5
-t -1
-t abc
-t 010
-T
-T -t 3
-b 1 -a
-b 1 -A
-b 1 -a -A
-b 0x1 --inactive --quiet
-a
-A
-B
-b 1
-b 9 -B
-b zz -B
-b 10000 -B
-b 7 -B -O
-N -O -T
-V
word
-r -y
-r -n 1
-r -N
-y -t 1
-y -T
-r -o 1
-m t
-m x
-M 10
-M 51
-M -1
-e 2
-e zz
-E zz
-p zz
--keep --gpt --write-signature
""".strip().splitlines()] + [(words, changes) for words, changes in [
    (["-D"], {"BootOrder": numbers(1, 1, 2, 2)}),
    (["-N"], {}),
    (["-T"], {"Timeout": None}),
    (["-D"], {"BootOrder": None}),
    (["-o", "1"], {"BootOrder": None}),
    (["-t", "7"], {"Timeout": None}),
    ([], {"BootOrder": None, "Timeout": None}),
    ([], {"BootOrder": numbers(1, 1, 9)}),
    ([], {"BootOrder": b"\7\0\0\0\1\0\2"}),
    ([], {"BootNext": numbers(1, 2), "Timeout": numbers(5, 0)}),
    ([], {"BootNext": b"\7\0\0\0\1", "Timeout": b"\7\0\0\0\1"}),
    ([], {"BootCurrent": numbers(0xabcd, attributes=6)}),
    ([], {"Boot00ab": option("lower"), "BootXYZW": option("no digits"), "Boot1": option("too short")}),
    (["-n", "ab"], {"Boot00ab": option("lower")}),
    (["-b", "ab", "-B"], {"Boot00AB": option("upper")}),
    (["-b", "ab", "-A"], {"Boot00ab": option("lower")}),
    ([], {"Boot0003": b"\7\0\0\0\3\0", "Boot0004": option("ö€" * 100)}),
    (["-b", "3", "-a"], {"Boot0003": option("", flags=0x108)}),
    (["-r", "-b", "3", "-B"], {"DriverOrder": numbers(4), "Driver0003": option("a"), "Driver0004": option("b")}),
    (["-r", "-b", "3", "-B"], {"Driver0003": option("a")}),
    (["-r", "-b", "3", "-B"], {"DriverOrder": numbers(3), "Driver0003": option("a")}),
    (["-r"], DRIVERS),
    (["-r", "-b", "4", "-a"], DRIVERS),
    (["-r", "-o", "4,3"], DRIVERS),
    (["-r", "-O"], DRIVERS),
    (["-r", "-b", "9", "-B"], DRIVERS),
    (["-y", "-D"], {"SysPrepOrder": numbers(3, 3), "SysPrep0003": option("a")}),
    ([], MIRRORS),
    ([], {CURRENT: mirror(1, 100, 3), REQUEST: mirror(0, 100, 1)}),
    ([], {CURRENT: mirror(1, 100, 9), REQUEST: mirror(1, 100, 1)}),
    ([], {CURRENT: mirror(1, 100, 0, 2), REQUEST: mirror(1, 100)}),
    (["-m", "t"], MIRRORS),
    (["-M", "0.29"], MIRRORS),
    (["-m", "yes", "-M", "49.999"], MIRRORS),
    (["-m", "0", "-q"], MIRRORS),
    (["-m", "f"], {CURRENT: mirror(1, 100), REQUEST: mirror(1, 200, 2)}),
    (["-M", "3"], {CURRENT: mirror(1, 100, 0, 2)}),
]] + [(CREATE + words, changes) for words, changes in [
    ([], {}),
    ([], {"BootOrder": None}),
    ([], {"Boot0002": None, "BootOrder": numbers(0, 1, 3, 4, 5, 6, 7)}),
    (["-p", "1", "-L", "Debian", "-l", "\\EFI\\debian\\shimx64.efi"], {}),
    (["-l", "/EFI/debian/shimx64.efi", "-L", "Zweite Öffnung"], {}),
    (["-l", "EFI\\a.efi", "-L", ""], {}),
    (["-L", "x" * 200, "-l", "\\" + "x" * 300], {}),
    (["-d", "/dev/sdd1"], {}),
    (["-d", "/dev/sdd1", "-p", "1"], {}),
    (["-d", "/dev/sdc"], {}),
    (["-d", "/dev/nvme0n1", "-p", "3"], {}),
    (["-e", "3"], {}),
    (["-d", "/dev/sdc", "-e", "3"], {}),
    (["-d", "/dev/nvme0n1", "-e", "3", "-p", "3"], {}),
    (["-e", "1"], {}),
    (["-e", "1", "-E", "81"], {}),
    (["-e", "-1", "-g", "-w"], {}),
    (["-p", "0"], {}),
    (["-b", "20"], {}),
    (["-b", "2"], {}),
    (["-b", "9"], {"Boot0009": b"\1\2"}),
    (["-b", "2", "-B"], {"BootOrder": None}),
    (["-b", "9"], {"Boot0009": b""}),
    (["-C"], {}),
    (["-r"], {}),
    (["-r", "-b", "5"], DRIVERS),
    (["-y", "--create-only"], {}),
    (["-n", "8", "-t", "3"], {}),
    (["-o", "8,0,1,2,3,4,5,6,7"], {}),
    (["-D"], {"BootOrder": numbers(1, 1)}),
    (["hello"], {}),
    (["two words"], {}),
    (["-u", "two wörds"], {}),
    (["--", "-x"], {}),
    (["-@", "-", "word"], {}),
    (["-@", __file__, "word"], {}),
    (["-u", "--append-binary-args", "-"], {}),
    (["--quiet", "--label=A", "--loader", "\\a.efi", "--part", "1", "--edd30", "3", "--edd-device", "80"], {}),
    (["--disk=/dev/sdx", "-b", "2"], {}),
    (["-b", "1", "-A"], {}),
]]

NETWORK = [CREATE + ["-i", CARD[0]] + words for words in ([], ["-l", "\\a.efi", "-e", "3", "-L", "net"], ["word"])]

# The reason is told in other words.
REFUSED = [(CREATE + words, {}) for words in (
    ["-d", "/dev/sdx"], ["-d", "/dev/sde"], ["-i", "none"], ["-i", "../x"], ["-d", "/dev/vda"])]

ORDER = numbers(0, 1, 2, 3, 4, 5, 6, 7)
NETWORK_OPTION = option("Linux", bytes.fromhex("030b2500525400123456") + bytes(26) + b"\1" + bytes.fromhex("030c1b00") +
                        bytes(23) + bytes.fromhex("7fff0400"))


class Row(NamedTuple):
    why: str
    words: list
    changes: dict
    status: int
    written: dict
    shown: str


# Where efibootmgr 17 does something else, and ours is right.
BETTER = [
    Row("of an order that becomes shorter the old end stays", ["-o", "2,1"], {}, 0, {"BootOrder": numbers(2, 1)},
        "BootOrder: 0002,0001\n"),
    Row("the last option stays in the order when it is removed", ["-b", "7", "-B"], {}, 0,
        {"Boot0007": None, "BootOrder": numbers(0, 1, 2, 3, 4, 5, 6)}, ",0005,0006\nBoot0000"),
    Row("the number of an option that is gone, which BootOrder names", CREATE + ["-q", "-i", CARD[0]],
        {"BootOrder": numbers(8)}, 0, {"BootOrder": numbers(9, 8), "Boot0009": NETWORK_OPTION}, ""),
    Row("a partition that is not there", CREATE + ["-p", "2"], {}, 5, {}, "has no partition 2"),
    Row("an option without a path ends its list", ["-v"], {"Boot0000": option("", b""), "BootOrder": ORDER}, 0, {},
        "\nBoot0007* EFI Internal Shell\t"),
    Row("half a description, which is followed by nothing", [], {"Boot0001": b"\7\0\0\0\1\0\0\0\0\0a\0b"}, 0, {},
        "Boot0001* a\n"),
    Row("two words overwrite each other as UCS-2", CREATE + ["-q", "-C", "-i", CARD[0], "-u", "a=b", "c"], {}, 0,
        {"Boot0008": option("Linux", bytes.fromhex("030b2500525400123456") + bytes(26) + b"\1" +
                            bytes.fromhex("030c1b00") + bytes(23) + bytes.fromhex("7fff0400"),
                            "a=b c".encode("utf-16-le"))}, ""),
    Row("words are followed by zeros", CREATE + ["-q", "-C", "-i", CARD[0], "a", "b"], {}, 0,
        {"Boot0008": option("Linux", bytes.fromhex("030b2500525400123456") + bytes(26) + b"\1" +
                            bytes.fromhex("030c1b00") + bytes(23) + bytes.fromhex("7fff0400"), b"a b")}, ""),
    Row("a character of 32 bits is cut into others", CREATE + ["-L", "\U0001f600"], {}, 5, {},
        "cannot be stored as UCS-2"),
    Row("an empty file name", CREATE + ["-l", ""], {}, 5, {}, "the name of a file is needed"),
    Row("a number with something behind it", ["-t", "3x"], {}, 38, {}, "invalid numeric value 3x"),
    Row("a number that is cut off", ["-t", "65536"], {}, 38, {}, "invalid numeric value 65536"),
    Row("an option is removed although the order cannot be read", ["-b", "3", "-B"], {"BootOrder": b"\1"}, 15, {},
        "cannot read BootOrder"),
    Row("an order that cannot be read", ["-D"], {"BootOrder": b"\1"}, 9, {}, "Could not set BootOrder: cannot"),
    Row("a time that cannot be read", ["-T"], {"Timeout": b"\1"}, 11, {}, "Could not delete Timeout: cannot"),
    Row("an option that cannot be read is there", CREATE + ["-b", "ab"], {"Boot00ab": b"\1\2"}, 40, {},
        "Cannot create Boot00AB: already exists.\n"),
    Row("an order that cannot be read is none that is not set", [], {"BootOrder": b"\1"}, 18, {},
        "\nBoot0007* EFI Internal Shell\nCould not list BootOrder: cannot read"),
    Row("the same", ["-n", "1"], {"BootOrder": b"\1"}, 18, {"BootNext": numbers(1)}, "\nThe changes were made.\n"),
    Row("half a number stays", CREATE + ["-q", "-b", "9", "-i", CARD[0]], {"BootOrder": numbers(1) + b"\2"}, 0,
        {"BootOrder": numbers(9, 1), "Boot0009": NETWORK_OPTION}, "BootOrder ends in half a number, which is dropped\n"),
    Row("half a number goes without a word", ["-D"], {"BootOrder": numbers(1, 1) + b"\2"}, 0,
        {"BootOrder": numbers(1)}, "BootOrder ends in half a number, which is dropped\n"),
    Row("another option of the number stays without a word", ["-b", "ab", "-B"],
        {"Boot00ab": option("lower"), "Boot00AB": option("upper"), "BootOrder": numbers(0xab, 1)}, 0,
        {"Boot00AB": None, "BootOrder": numbers(1)}, "Boot00ab has the same number and is still there\n"),
    Row("a negative number is counted from the largest", ["-b", "-FFFFFFFFFFFFFFFE", "-B"], {}, 29, {},
        "Invalid bootnum value: 2\n"),
    Row("the same", ["-n", "-FFFFFFFFFFFFFFFE"], {}, 36, {}, "Invalid BootNext value: 2\n"),
    Row("the same", ["-o", "-FFFFFFFFFFFFFFFE,1"], {}, 8, {}, "Invalid BootOrder order entry value: 2\n"),
    Row("a number that is none", ["-n", ""], {}, 35, {}, "Invalid BootNext value"),
    Row("a partition's number with something behind it", CREATE + ["-p", "1x"], {}, 37, {}, "invalid numeric value 1x"),
    Row("a format stands in the message", ["-b", "9", "-A"], {}, 16, {},
        "Could not set active state for Boot0009: No such file or directory\n"),
    Row("it fails without a word", ["-O"], {"BootOrder": None}, 1, {},
        "Could not delete BootOrder: No such file or directory\n"),
    Row("a control character reaches the terminal", [], {"Boot0001": option("a\x1b[2Jb")}, 0, {}, "a\\u001b[2Jb"),
]
