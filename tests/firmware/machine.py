"""A virtual machine with real firmware: its starts, its console, and the guest that runs on it."""
import json
import os
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
    pass


@dataclass
class Result:
    status: int
    out: str
    err: str


class Channel:
    """One of the emulator's sockets; what comes from it is kept."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        deadline = time.monotonic() + 20
        while True:
            try:
                self.socket.connect(str(path))
                break
            except (FileNotFoundError, ConnectionRefusedError):
                if time.monotonic() > deadline:
                    raise Failure(f"the emulator does not open {path.name}") from None
                time.sleep(0.02)
        self.received = b""
        self.open = True

    def receive(self):
        part = self.socket.recv(65536)
        self.open = bool(part)
        self.received += part

    def send(self, data):
        self.socket.sendall(data)


class Start:
    """One start of a machine, from switching on until it is off."""

    def __init__(self, machine, number, arguments):
        self.machine = machine
        self.folder = machine.folder
        self.sockets = [self.folder / name for name in ("console", "guest", "qmp")]
        for path in self.sockets:
            path.unlink(missing_ok=True)
        self.log = open(self.folder / f"qemu-{number}.log", "w+b")
        self.process = subprocess.Popen(
            ["qemu-system-x86_64", *arguments], stdin=subprocess.DEVNULL, stdout=self.log, stderr=subprocess.STDOUT,
            cwd=self.folder)
        try:
            self.console, self.guest, self.qmp = (Channel(path) for path in self.sockets)
        except Failure as failure:
            self.cut_power()
            self.log.seek(0)
            raise Failure(f"{failure}: {self.log.read().decode()}") from None
        self.qmp.send(b'{"execute": "qmp_capabilities"}\n')
        self.read = 0  # of what came from the guest

    def _pump(self, seconds):
        """Receives what the sockets hold; False when all of them are closed."""
        channels = {each.socket: each for each in (self.console, self.guest, self.qmp) if each.open}
        if not channels:
            return False
        for ready in select.select(list(channels), [], [], seconds)[0]:
            try:
                channels[ready].receive()
            except ConnectionResetError:
                channels[ready].open = False
        return True

    def _wait(self, what, limit, condition):
        deadline = time.monotonic() + limit
        while not (found := condition()):
            if time.monotonic() > deadline:
                raise Failure(f"no {what} within {limit} s")
            if not self._pump(0.2):
                raise Failure(f"the machine went off without {what}")
        return found

    def console_text(self):
        text = self.console.received.decode("utf-8", "replace").replace("\r", "")
        return re.sub(r"\x1b(\[[0-9;?=]*[A-Za-z]|[()].)", "", text)

    def wait_for_console(self, pattern, limit=START_LIMIT):
        return self._wait(f"{pattern!r} on the console", limit, lambda: re.search(pattern, self.console_text()))

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

        self._wait("guest", limit, ready)
        starting = re.findall(r"BdsDxe: starting .*\n", self.console_text())
        self.machine.shown += "".join(starting)
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
        head = self._wait(f"answer to: {command}", limit, self._line)
        status, out, err = (int(word) for word in head.split())
        begin = self.read + len(head)
        self._wait(f"whole answer to: {command}", limit, lambda: len(self.guest.received) >= begin + out + err)
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
        """Like output, for the record of the machine."""
        self.machine.shown += f"# {command}\n"
        out = self.output(command)
        self.machine.shown += out + "\n"
        return out

    def ovra(self, arguments, limit=COMMAND_LIMIT):
        """The JSON that `ovra` prints."""
        return json.loads(self.output(f"ovra {arguments} --json", limit))

    def option_started(self):
        """The option that the firmware says it starts last: its number and description."""
        started = re.findall(r'BdsDxe: starting Boot([0-9A-F]{4}) "([^"]*)"', self.console_text())
        return (int(started[-1][0], 16), started[-1][1]) if started else None

    def command_line(self):
        return self.output("cat /proc/cmdline").strip()

    def wait_until_off(self, limit=30):
        """Waits until the guest has switched the machine off or reset it, which ends a start; says which."""
        deadline = time.monotonic() + limit
        while self._pump(0.2):
            if time.monotonic() > deadline:
                raise Failure(f"the machine is still on after {limit} s")
        self.process.wait()
        reasons = re.findall(rb'"event": "SHUTDOWN".*?"reason": "([^"]*)"', self.qmp.received)
        return reasons[-1].decode() if reasons else None

    def cut_power(self):
        self.process.kill()
        self.process.wait()


class Machine:
    """A PC with a PCIe chipset, whose firmware keeps its variables in the machine's folder."""

    def __init__(self, folder, devices):
        self.folder = Path(folder)
        self.devices = devices
        self.variables = self.folder / "variables"
        shutil.copyfile(FIRMWARE_VARIABLES, self.variables)
        self.starts = []
        self.shown = ""  # what the firmware said it starts, and commands with their output

    def start(self, extra=()):
        arguments = [
            "-machine", "q35", "-accel", "tcg", "-m", "512", "-smp", "1",
            "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot", "-rtc", "base=utc",
            "-drive", f"if=pflash,format=raw,readonly=on,file={FIRMWARE_CODE}",
            "-drive", f"if=pflash,format=raw,file={self.variables}",
            "-chardev", "socket,id=console,path=console,server=on,wait=off", "-serial", "chardev:console",
            "-chardev", "socket,id=guest,path=guest,server=on,wait=off", "-serial", "chardev:guest",
            "-chardev", "socket,id=qmp,path=qmp,server=on,wait=off", "-mon", "chardev=qmp,mode=control",
            *self.devices, *extra,
        ]  # fmt: skip
        self.starts.append(Start(self, len(self.starts) + 1, arguments))
        return self.starts[-1]

    def off(self):
        for start in self.starts:
            start.cut_power()

    def transcript(self):
        """What all starts wrote to the console."""
        return "".join(f"-- start {number}\n{start.console_text()}\n" for number, start in enumerate(self.starts, 1))


def sata_disk(image, port):
    return ["-drive", f"if=none,id=sata{port},format=raw,snapshot=on,file={image}",
            "-device", f"ide-hd,bus=ide.{port},drive=sata{port}"]  # fmt: skip


def scsi_disk(image, target, slot):
    """On a controller of its own in the given slot."""
    return ["-device", f"virtio-scsi-pci,id=scsi{slot},addr={slot:#x}",
            "-drive", f"if=none,id=unit{slot},format=raw,snapshot=on,file={image}",
            "-device", f"scsi-hd,bus=scsi{slot}.0,scsi-id={target},lun=0,drive=unit{slot}"]  # fmt: skip


def nvme_disk(image, slot):
    return ["-drive", f"if=none,id=nvme{slot},format=raw,snapshot=on,file={image}",
            "-device", f"nvme,addr={slot:#x},serial=ovra{slot},drive=nvme{slot}"]  # fmt: skip


def scsi_disk_behind_a_bridge(image, target, slot):
    """On a controller behind a PCIe root port in the given slot."""
    return ["-device", f"pcie-root-port,id=port{slot},addr={slot:#x},chassis={slot},slot={slot}",
            "-device", f"virtio-scsi-pci,id=scsi{slot},bus=port{slot}",
            "-drive", f"if=none,id=unit{slot},format=raw,snapshot=on,file={image}",
            "-device", f"scsi-hd,bus=scsi{slot}.0,scsi-id={target},lun=0,drive=unit{slot}"]  # fmt: skip
