# SPDX-License-Identifier: MIT
"""The classes of disks that the emulator has, on the machines that show them."""
from dataclasses import dataclass

GPT = "gpt 65536 2048+4096"
LARGE_BLOCKS = "gpt/4096 16384 256+1024"
ABOVE_2_TIB = "gpt 6442450944 5000000000+4096"


@dataclass
class Disk:
    """A disk: its class, the emulator's devices up to the one that has the image, and the image as tests/machines/ has
    it. `remark` says what the firmware has to do with what is seen. The firmware looks at no other unit of a SCSI controller
    than the first, unless the machine gives the disk a place in its order (`ordered`)."""

    name: str
    devices: list
    image: str = GPT
    remark: str = ""
    ordered: bool = False


def port(number):
    """A PCIe root port, for one device."""
    return f"pcie-root-port,id=port{number},addr={number:#x},chassis={number},slot={number}"


def scsi(*fields, **more):
    return Disk(*fields, **more, ordered=True)


def large_blocks(device):
    return f"{device},logical_block_size=4096,physical_block_size=4096"


NO_DRIVER = "the firmware has no driver for the controller"

Q35 = [
    Disk("SATA, first port", ["ide-hd,bus=ide.0"]),
    Disk("SATA, fourth port", ["ide-hd,bus=ide.3"]),
    Disk("SATA, a partition above 2 TiB", ["ide-hd,bus=ide.4"], ABOVE_2_TIB),
    Disk("SATA controller behind a PCIe root port", [port(2), "ich9-ahci,id=ahci,bus=port2", "ide-hd,bus=ahci.1"]),
    Disk("virtio-blk", ["virtio-blk-pci,addr=3"]),
    Disk("virtio-blk, blocks of 4 KiB", [large_blocks("virtio-blk-pci,addr=4")], LARGE_BLOCKS),
    Disk("virtio-blk behind a PCI bridge", ["pcie-pci-bridge,id=bridge,addr=5", "virtio-blk-pci,bus=bridge,addr=3"]),
    scsi("virtio-scsi, target 0", ["virtio-scsi-pci,id=scsi,addr=6", "scsi-hd,bus=scsi.0,scsi-id=0,lun=0"]),
    scsi("virtio-scsi, target 3, unit 5", ["scsi-hd,bus=scsi.0,scsi-id=3,lun=5"]),
    scsi("virtio-scsi, blocks of 4 KiB", [large_blocks("scsi-hd,bus=scsi.0,scsi-id=4,lun=0")], LARGE_BLOCKS),
    scsi("virtio-scsi, a partition above 2 TiB", ["scsi-hd,bus=scsi.0,scsi-id=5,lun=0"], ABOVE_2_TIB),
    scsi("virtio-scsi, unit 300", ["scsi-hd,bus=scsi.0,scsi-id=6,lun=300"], remark="the firmware looks at units up to 7"),
    Disk("virtio-scsi below a further root bridge (pxb)",
          ["pxb-pcie,id=pxb,bus_nr=64,addr=7", "pcie-root-port,id=port64,bus=pxb,chassis=64,slot=64",
           "virtio-scsi-pci,id=scsi64,bus=port64", "scsi-hd,bus=scsi64.0,scsi-id=0,lun=0"]),
    Disk("NVMe, first of two namespaces", ["nvme,id=nvme8,addr=8,serial=eight", "nvme-ns,bus=nvme8,nsid=1"]),
    Disk("NVMe, second of two, blocks of 4 KiB", [large_blocks("nvme-ns,bus=nvme8,nsid=2")], LARGE_BLOCKS),
    Disk("NVMe with an EUI-64", ["nvme,id=nvme9,addr=9,serial=nine", "nvme-ns,bus=nvme9,nsid=3,eui64=0x525400a1b2c3d4e5"],
         remark="Linux does not believe the emulator's EUI-64 and tells none"),
    Disk("NVMe in a subsystem, two controllers",
         ["nvme-subsys,id=subsystem", "nvme,id=first,addr=0xa,serial=ten,subsys=subsystem",
          "nvme,id=second,addr=0xb,serial=ten,subsys=subsystem", "nvme-ns,bus=second,nsid=1,shared=on"]),
    Disk("NVMe behind a PCIe switch",
         [port(12), "x3130-upstream,id=upstream,bus=port12", "xio3130-downstream,id=unused,bus=upstream,chassis=121,slot=1",
          "xio3130-downstream,id=downstream,bus=upstream,chassis=122,slot=2", "nvme,bus=downstream,serial=twelve"]),
    Disk("USB 3, on the controller", ["qemu-xhci,id=xhci,addr=0xd", "usb-storage,bus=xhci.0,port=1"]),
    Disk("USB behind a hub", ["usb-hub,bus=xhci.0,port=2", "usb-storage,bus=xhci.0,port=2.3"]),
    Disk("USB behind two hubs",
         ["usb-hub,bus=xhci.0,port=3", "usb-hub,bus=xhci.0,port=3.2", "usb-storage,bus=xhci.0,port=3.2.4"]),
    Disk("USB Attached SCSI", ["qemu-xhci,id=uas,addr=0xe", "usb-uas,id=attached,bus=uas.0,port=1",
                               "scsi-hd,bus=attached.0,scsi-id=0,lun=0"], remark=NO_DRIVER),
    Disk("USB 2 (EHCI)", ["usb-ehci,id=ehci,addr=0xf", "usb-storage,bus=ehci.0,port=2"]),
    Disk("USB 1 (UHCI)", ["piix3-usb-uhci,id=uhci,addr=0x10", "usb-storage,bus=uhci.0,port=2"]),
    Disk("SD card", ["sdhci-pci,addr=0x11", "sd-card"], remark=NO_DRIVER),
    Disk("pvscsi", ["pvscsi,id=pvscsi,addr=0x12", "scsi-hd,bus=pvscsi.0,scsi-id=0,lun=0"],
         remark="Debian's build of the firmware finds no disk on it"),
    Disk("LSI 53C895A", ["lsi53c895a,id=lsi,addr=0x14", "scsi-hd,bus=lsi.0,scsi-id=2,lun=0"], remark=NO_DRIVER),
    Disk("AMD 53C974", ["am53c974,id=amd,addr=0x15", "scsi-hd,bus=amd.0,scsi-id=2,lun=0"], remark=NO_DRIVER),
    Disk("MegaRAID SAS", ["megasas,id=mega,addr=0x16", "scsi-hd,bus=mega.0,scsi-id=1,lun=0"], remark=NO_DRIVER),
]  # fmt: skip

PC = [
    Disk("IDE, first drive of the first channel", ["ide-hd,bus=ide.0,unit=0"]),
    Disk("IDE, second drive of the first channel", ["ide-hd,bus=ide.0,unit=1"]),
    Disk("IDE, second drive of the second channel", ["ide-hd,bus=ide.1,unit=1"]),
    Disk("virtio-scsi below a further root bridge (pxb)",
         ["pxb,id=pxb,bus_nr=32,addr=4", "virtio-scsi-pci,id=scsi,bus=pxb,addr=3",
          "scsi-hd,bus=scsi.0,scsi-id=0,lun=0"]),
]  # fmt: skip

# By the names of their files in tests/machines/: the emulator's chipset, and the disks.
MACHINES = {"qemu_q35": ("q35", Q35), "qemu_pc": ("pc", PC)}
ROOT_BUSES = {"q35": "pcie.0", "pc": "pci.0"}


def arguments(chipset, disks, images, ordered=False):
    """The emulator's arguments for the disks with these images, with a place in the machine's order or without."""

    def placed(device):
        return device if "addr=" not in device or "bus=" in device else f"{device},bus={ROOT_BUSES[chipset]}"

    result = []
    for number, (disk, image) in enumerate(zip(disks, images)):
        *others, last = disk.devices
        result.append(["-drive", f"if=none,id=disk{number},format=raw,snapshot=on,file={image}"])
        result += [["-device", placed(device)] for device in others]
        index = f",bootindex={number}" if ordered else ""
        result.append(["-device", f"{placed(last)},drive=disk{number}{index}"])
    return result
