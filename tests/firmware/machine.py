# SPDX-License-Identifier: MIT
"""A virtual machine with real firmware: its starts, its consoles, and the guest that runs on it."""
import json
import re
import select
import shutil
import socket
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

FIRMWARE_CODE = "/usr/share/OVMF/OVMF_CODE_4M.fd"
FIRMWARE_VARIABLES = "/usr/share/OVMF/OVMF_VARS_4M.fd"

START_LIMIT = 60  # seconds from switching on to the guest's first word
COMMAND_LIMIT = 60  # seconds for one command in the guest


class Failure(Exception):
    """What a scenario found, or why it cannot go on."""


@dataclass
class Result:
    """What a command in the guest ended with."""

    status: int
    out: str
    err: str


class Channel:
    """A connection to the emulator; what comes from it is kept."""

    def __init__(self):
        self.socket, self.emulator_end = socket.socketpair()
        self.received = b""
        self.open = True

    def receive(self):
        try:
            part = self.socket.recv(65536)
        except ConnectionResetError:
            part = b""
        self.open = bool(part)
        self.received += part

    def send(self, data):
        self.socket.sendall(data)

    def close(self):
        self.open = False
        self.socket.close()
        self.emulator_end.close()


class Start:
    """One start of a machine, from switching on until it is off."""

    def __init__(self, machine, number, emulator="qemu-system-x86_64"):
        self.machine = machine
        self.read = 0  # of what came from the guest
        self.waited = 0  # nanoseconds in which threads of the emulator were ready and did not run
        self.console, self.guest, self.qmp = self.channels = [Channel() for _ in range(3)]
        ends = [channel.emulator_end.fileno() for channel in self.channels]
        arguments = [
            "-chardev", f"socket,id=console,fd={ends[0]}", "-serial", "chardev:console",
            "-chardev", f"socket,id=guest,fd={ends[1]}", "-serial", "chardev:guest",
            "-chardev", f"socket,id=qmp,fd={ends[2]}", "-mon", "chardev=qmp,mode=control",
        ]  # fmt: skip
        self.log = machine.folder / f"qemu-{number}.log"
        with open(self.log, "wb") as log:
            # No machine outlives this program, however it ends.
            self.process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", emulator, *machine.arguments, *arguments],
                stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT, pass_fds=ends)  # fmt: skip
        for channel in self.channels:
            channel.emulator_end.close()
        self.qmp.send(b'{"execute": "qmp_capabilities"}\n')

    def _pump(self, seconds):
        """Receives what the channels hold; False when all of them are closed."""
        channels = {each.socket: each for each in self.channels if each.open}
        if not channels:
            return False
        for ready in select.select(list(channels), [], [], seconds)[0]:
            channels[ready].receive()
        return True

    def _seconds(self):
        """A clock that stands while the emulator waits for a processor of the host: a busy host makes a slow machine. What its
        threads waited is added up: one that waits for a processor holds up those that wait for it."""
        waited = 0
        for thread in Path("/proc", str(self.process.pid), "task").glob("*/schedstat"):
            try:
                waited += int(thread.read_text().split()[1])
            except (FileNotFoundError, ProcessLookupError):
                pass  # this thread has ended
        self.waited = max(self.waited, waited)
        return time.monotonic() - self.waited / 1e9

    def wait_until(self, what, limit, condition):
        """Waits for the condition's value, and gives it. The limit is in seconds in which the machine could run."""
        deadline = self._seconds() + limit
        while not (found := condition()):
            if self._seconds() > deadline:
                raise Failure(f"no {what} within {limit} s")
            if not self._pump(0.2):
                raise Failure(f"the machine went off without {what}")
        return found

    def console_text(self):
        """The text on the console, without control sequences."""
        text = self.console.received.decode("utf-8", "replace").replace("\r", "")
        return re.sub(r"\x1b(\[[0-9;?=]*[A-Za-z]|[()].)", "", text)

    def transcript(self):
        """All output: of the console, of the guest since its last answer, and of the emulator."""
        unread = self.guest.received[self.read:].decode("utf-8", "replace")
        return f"{self.console_text()}\n-- guest\n{unread}\n-- emulator\n{self.log.read_text(errors='replace')}"

    def wait_for_console(self, pattern, limit=START_LIMIT):
        """Waits until the console's text holds the pattern."""
        return self.wait_until(f"{pattern!r} on the console", limit, lambda: re.search(pattern, self.console_text()))

    def wait_for_guest(self, limit=START_LIMIT):
        """Waits until the guest runs. Skips the pause before the firmware's shell looks for its script."""
        skipped = False

        def ready():
            nonlocal skipped
            if not skipped and "any other key to continue" in self.console_text():
                self.console.send(b"\r")
                skipped = True
            at = self.guest.received.find(b"guest: ready")
            end = self.guest.received.find(b"\n", at)
            if at < 0 or end < 0:
                return False
            self.read = end + 1
            return True

        self.wait_until("guest", limit, ready)
        self.machine.shown += "".join(re.findall(r"BdsDxe: starting .*\n", self.console_text()))
        return self

    def _line(self):
        end = self.guest.received.find(b"\n", self.read)
        return self.guest.received[self.read:end + 1] if end >= 0 else b""

    def send(self, command):
        """Lets the guest run `command` without waiting for its end."""
        self.guest.send(command.encode() + b"\n")

    def run(self, command, limit=COMMAND_LIMIT):
        """Runs `command` in the guest's shell."""
        self.send(command)
        head = self.wait_until(f"answer to: {command}", limit, self._line)
        status, out, err = (int(word) for word in head.split())
        begin = self.read + len(head)
        self.wait_until(f"whole answer to: {command}", limit, lambda: len(self.guest.received) >= begin + out + err)
        self.read = begin + out + err
        parts = (self.guest.received[begin:begin + out], self.guest.received[begin + out:self.read])
        return Result(status, *(part.decode("utf-8", "replace") for part in parts))

    def output(self, command, limit=COMMAND_LIMIT):
        """What `command` writes to its standard output; it must succeed."""
        done = self.run(command, limit)
        if done.status != 0:
            raise Failure(f"{command}: exit status {done.status}\n{done.out}{done.err}")
        return done.out

    def show(self, command):
        """Like output, for the record of the machine, with what the command tells a person."""
        self.machine.shown += f"# {command}\n"
        out = self.output(f"{command} 2>&1")
        self.machine.shown += out + "\n"
        return out

    def load_more_modules(self):
        """Loads the drivers of the disks that few scenarios have, and waits for the disks."""
        self.output("while read -r module; do insmod /lib/modules/$module || exit; done </lib/modules/more")
        self.output("for turn in $(seq 30); do sleep 1; "
                    "[ -e /dev/vda1 ] && [ -e /dev/sda1 ] && exit; done; exit 1")

    def ovra(self, arguments, limit=COMMAND_LIMIT):
        """The JSON that `ovra` prints."""
        return json.loads(self.output(f"ovra {arguments} --json", limit))

    def option_started(self):
        """The option that the firmware says it starts last: its number and description."""
        started = re.findall(r'BdsDxe: starting Boot([0-9A-F]{4}) "([^"]*)"', self.console_text())
        return (int(started[-1][0], 16), started[-1][1]) if started else None

    def command_line(self):
        """The words that the kernel was started with."""
        return self.output("cat /proc/cmdline").split()

    def wait_until_off(self, limit=30):
        """Waits until the guest has switched the machine off or reset it, which ends a start; says which."""
        deadline = self._seconds() + limit
        while self._pump(0.2):
            if self._seconds() > deadline:
                raise Failure(f"the machine is still on after {limit} s")
        self.cut_power()
        reasons = re.findall(rb'"event": "SHUTDOWN".*?"reason": "([^"]*)"', self.qmp.received)
        return reasons[-1].decode() if reasons else None

    def cut_power(self):
        """Ends the emulator on the spot."""
        self.process.kill()
        self.process.wait()
        for channel in self.channels:
            channel.close()


class Machine:
    """A PC whose firmware keeps its variables in the machine's folder."""

    def __init__(self, folder, devices, chipset="q35"):
        self.folder = Path(folder)
        self.variables = self.folder / "variables"
        shutil.copyfile(FIRMWARE_VARIABLES, self.variables)
        self.arguments = [
            "-machine", chipset, "-accel", "tcg", "-m", "512", "-smp", "1",
            "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot", "-rtc", "base=utc",
            "-drive", f"if=pflash,format=raw,readonly=on,file={FIRMWARE_CODE}",
            "-drive", f"if=pflash,format=raw,file={self.variables}",
            *(argument for device in devices for argument in device),
        ]  # fmt: skip
        self.starts = []
        self.shown = ""  # what the firmware said it starts, and commands with their output

    def start(self):
        """Switches the machine on."""
        self.starts.append(Start(self, len(self.starts) + 1))
        return self.starts[-1]

    def off(self):
        for start in self.starts:
            start.cut_power()

    def console_text(self):
        """The console of all starts."""
        return "".join(start.console_text() for start in self.starts)

    def transcript(self):
        """What all starts said."""
        return "".join(f"-- start {number}\n{start.transcript()}\n" for number, start in enumerate(self.starts, 1))


# The firmware connects every disk that it can enumerate, or, where one has a boot index, those that have one. On a SCSI
# controller it enumerates the first unit only: any other needs an index, and then the machine's other disks do too.


def _disk(name, image, device, index):
    if index is not None:
        device += f",bootindex={index}"
    return ["-drive", f"if=none,id={name},format=raw,snapshot=on,file={image}", "-device", f"{device},drive={name}"]


def sata_disk(image, port, index=None):
    """On a port of the chipset's controller."""
    return _disk(f"sata{port}", image, f"ide-hd,bus=ide.{port}", index)


def scsi_disk(image, target, unit, slot, index=None, bridge=False):
    """On a controller of its own in the given slot, or below a PCIe root port there."""
    port = ["-device", f"pcie-root-port,id=port{slot},addr={slot:#x},chassis={slot},slot={slot}"] if bridge else []
    place = f"bus=port{slot}" if bridge else f"addr={slot:#x}"
    disk = _disk(f"unit{slot}", image, f"scsi-hd,bus=scsi{slot}.0,scsi-id={target},lun={unit}", index)
    return [*port, "-device", f"virtio-scsi-pci,id=scsi{slot},{place}", *disk]


def nvme_disk(image, slot, index=None):
    """In the given slot."""
    return _disk(f"nvme{slot}", image, f"nvme,addr={slot:#x},serial=ovra{slot}", index)


def virtio_disk(image, slot):
    """In the given slot."""
    return _disk(f"virtio{slot}", image, f"virtio-blk-pci,addr={slot:#x}", None)


def usb_disk(image, slot):
    """On the third port of a hub, which is on the second port of a controller in the given slot."""
    return ["-device", f"qemu-xhci,id=xhci{slot},addr={slot:#x}", "-device", f"usb-hub,bus=xhci{slot}.0,port=2",
            *_disk(f"usb{slot}", image, f"usb-storage,bus=xhci{slot}.0,port=2.3", None)]
