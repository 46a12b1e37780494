# SPDX-License-Identifier: MIT
"""Disk images whose first partition is an EFI system partition with the guest's kernel on it."""
import os
import subprocess

PATH = os.environ["PATH"] + ":/usr/sbin:/sbin"  # where users other than root do not look

BLOCK = 512
START = 2048  # blocks
SIZE = 98304  # blocks, 48 MiB

# The first entries of the tables: one machine may have several disks.
GUIDS = {
    "gpt": "5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01",
    "gpt2": "5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02",
    "gpt3": "5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c03",
}
SIGNATURE = 0x1234ABCD  # of the disk "mbr"

KERNEL = r"\EFI\T\K.EFI"
SECOND_LOADER = r"\EFI\T\SECOND.EFI"  # the same kernel
INITRD = r"\EFI\T\I.GZ"
COMMAND_LINE = rf"initrd={INITRD} console=ttyS0 quiet panic=-1"


def run(*command, text=None):
    done = subprocess.run(command, input=text, capture_output=True, text=True, env={**os.environ, "PATH": PATH})
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: {done.stdout}{done.stderr}")
    return done.stdout


def system_partition(kernel, initramfs, folder):
    """The contents of an EFI system partition. The firmware's shell, which starts when no disk has a default
    loader, runs startup.nsh, which starts the kernel."""
    image = folder / "esp"
    with open(image, "wb") as file:
        file.truncate(SIZE * BLOCK)
    run("mformat", "-i", image, "-T", str(SIZE), "-h", "16", "-s", "32", "-c", "4", "::")
    run("mmd", "-i", image, "::/EFI", "::/EFI/T")
    run("mcopy", "-i", image, kernel, "::/EFI/T/K.EFI")
    run("mcopy", "-i", image, kernel, "::/EFI/T/SECOND.EFI")
    run("mcopy", "-i", image, initramfs, "::/EFI/T/I.GZ")
    script = folder / "startup.nsh"
    script.write_text(f"{KERNEL} {COMMAND_LINE}\r\n")
    run("mcopy", "-i", image, script, "::/startup.nsh")
    return image


def disk(image, partition, guid=None):
    """Makes the disk `image` with the file `partition` as its first partition: with a GPT and the entry's `guid`, or
    without `guid` with an MBR and the disk's signature."""
    with open(image, "wb") as file:
        file.truncate((START + SIZE + START) * BLOCK)
    if guid:
        run("sgdisk", "--new", f"1:{START}:{START + SIZE - 1}", "--typecode", "1:ef00", "--partition-guid", f"1:{guid}",
            image)
    else:
        script = f"label: dos\nlabel-id: {SIGNATURE:#010x}\nstart={START}, size={SIZE}, type=ef\n"
        run("sfdisk", "--quiet", image, text=script)
    run("dd", f"if={partition}", f"of={image}", f"bs={BLOCK}", f"seek={START}", "conv=notrunc,sparse", "status=none")


def small_file_system(program, block, folder):
    """The bytes of a file system for blocks of that size, with the program as T.EFI."""
    image = folder / f"small-{block}"
    with open(image, "wb") as file:
        file.truncate(2 << 20)
    run("mformat", "-i", image, "-T", str((2 << 20) // block), "-h", "16", "-s", "32", "-S", str(block.bit_length() - 8),
        "::")
    run("mcopy", "-i", image, program, "::/T.EFI")
    return image.read_bytes()
