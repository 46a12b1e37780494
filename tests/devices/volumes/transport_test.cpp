// SPDX-License-Identifier: MIT
// How drives are attached behind the PCI function of their controller.
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;

class transports : public testing::Test {
protected:
    // "sata port=0": the transport of a drive with its numbers, or why its place is not known.
    static std::string of(const std::string &kernel_name)
    {
        const descriptors drives = all_of(VS_DRIVE);
        for (size_t i = 0; drives[i] != 0; ++i) {
            const attributes list = attributes_of(drives[i]);
            if (text(list.get(), "kernel-name") == kernel_name + '\0')
                return described(attachment_of(drives[i]).get());
        }
        return "(no drive)";
    }

    static attributes attachment_of(vs_descriptor_t drive)
    {
        int err = -1;
        attributes list(vs_get_attachment(drive, &err));
        EXPECT_EQ(err, 0);
        return list;
    }

    static std::string text(kvlist_t *list, const char *name)
    {
        uint8_t *data = nullptr;
        unsigned count = 0;
        if (kvlist_lookup_uint8_array(list, name, &data, &count) != 0)
            return "";
        return {reinterpret_cast<const char *>(data), count};
    }

    static std::string described(kvlist_t *list)
    {
        std::string all = text(list, "transport").c_str();
        for (const char *name : {"port", "multiplier-port", "channel", "target", "lun", "sas-address",
                                 "namespace", "interface", "slot", "removable"}) {
            if (const auto value = attribute(list, name))
                all += std::string(" ") + name + "=" + std::to_string(*value);
        }
        for (const char *name : {"eui64", "usb-ports"}) {
            std::string numbers;
            for (const char byte : text(list, name))
                numbers += (numbers.empty() ? "" : ".") + std::to_string(static_cast<uint8_t>(byte));
            if (!numbers.empty())
                all += std::string(" ") + name + "=" + numbers;
        }
        if (const std::string why = text(list, "place-unknown"); !why.empty())
            all += std::string(": ") + why.c_str();
        return all;
    }

    // A disk on the SCSI host of a function.
    void scsi_disk(const std::string &name, const std::string &host, const std::string &address) const
    {
        machine.disk(name, host + "/host2/target" + address.substr(0, address.rfind(':')) + "/" + address);
    }

    // An xHCI controller with the root hubs usb1 (USB 2, four ports) and usb2 (USB 3, two).
    [[nodiscard]] std::string xhci(unsigned vendor, unsigned device) const
    {
        std::string path = machine.function("pci0000:00/0000:00:14.0", 0x0c0330, vendor, device);
        machine.text(path + "/usb1/speed", "480");
        machine.text(path + "/usb1/maxchild", "4");
        machine.text(path + "/usb2/speed", "5000");
        machine.text(path + "/usb2/maxchild", "2");
        return path;
    }

    const sample machine{};
};

TEST_F(transports, of_the_captured_machine)
{
    const sample captured("q35");
    EXPECT_EQ(of("sda"), "sata port=0");
    EXPECT_EQ(of("sdb"), "sata port=3");
    EXPECT_EQ(of("sdc"), "scsi channel=0 target=1 lun=2");
    EXPECT_EQ(of("sdd"), "scsi channel=0 target=0 lun=0");
    EXPECT_EQ(of("sde"), "usb interface=0 usb-ports=0");
    EXPECT_EQ(of("nvme0n1"), "nvme namespace=1");
    EXPECT_EQ(of("vda"), "virtio-blk");
}

// Reading them takes many system calls, which the attributes of a drive are spared.
TEST_F(transports, are_no_attributes)
{
    const sample captured("q35");
    const descriptors drives = all_of(VS_DRIVE);
    for (size_t i = 0; drives[i] != 0; ++i) {
        const attributes list = attributes_of(drives[i]);
        EXPECT_EQ(described(list.get()), "") << name_of(drives[i]);
        EXPECT_NE(text(list.get(), "kernel-name"), "");
    }
}

TEST_F(transports, are_those_of_drives)
{
    const sample captured("q35");
    for (const vs_kind_t kind : {VS_MEDIA, VS_SLICE}) {
        const descriptors found = all_of(kind);
        int err = 0;
        EXPECT_EQ(vs_get_attachment(found[0], &err), nullptr);
        EXPECT_EQ(err, EINVAL);
    }
}

TEST_F(transports, of_ata_ports)
{
    const std::string ahci = machine.function("pci0000:00/0000:00:17.0", 0x010601);
    machine.disk("sda", machine.ata(ahci, 1, 6, "1:0:0:0"));
    machine.disk("sdb", machine.ata(ahci, 2, 2, "2:3:0:0", 5));
    const std::string ide = machine.function("pci0000:00/0000:00:1f.1", 0x01018a);
    machine.disk("sdc", machine.ata(ide, 3, 2, "3:0:1:0"));
    machine.disk("sdd", machine.ata(ide, 4, 3, "4:0:0:0"));
    machine.disk("sde", ahci + "/ata9/host9/target9:0:0/9:0:0:0");
    EXPECT_EQ(of("sda"), "sata port=5");
    EXPECT_EQ(of("sdb"), "sata port=1 multiplier-port=3");
    EXPECT_EQ(of("sdc"), "ide channel=1 target=1");
    EXPECT_EQ(of("sdd"), "ide: a path has no room for its channel or drive");
    EXPECT_EQ(of("sde"), "sata: sysfs does not tell the port of its controller");
}

TEST_F(transports, of_scsi_hosts)
{
    const std::string host = machine.function("pci0000:00/0000:00:03.0", 0x010000);
    scsi_disk("sda", host, "2:0:5:1");
    scsi_disk("sdb", host, "2:1:5:0");
    scsi_disk("sdc", host, "2:0:6:16642"); // 258 in the flat space
    scsi_disk("sdd", host, "2:0:70000:0");
    EXPECT_EQ(of("sda"), "scsi channel=0 target=5 lun=1");
    EXPECT_EQ(of("sdb"), "scsi channel=1 target=5 lun=0");
    EXPECT_EQ(of("sdc"), "scsi channel=0 target=6 lun=258");
    EXPECT_EQ(of("sdd"), "scsi: a path has no room for its target or unit");
    const std::string ufs = machine.function("pci0000:00/0000:00:12.7", 0x010901);
    scsi_disk("sde", ufs, "2:0:0:3");
    EXPECT_EQ(of("sde"), "ufs target=0 lun=3");
}

TEST_F(transports, of_serial_attached_scsi)
{
    const std::string host = machine.function("pci0000:00/0000:00:04.0", 0x010700) + "/host2/port-2:0/";
    const auto disk = [&](const std::string &name, const std::string &end, const std::string &address) {
        machine.disk(name, host + end + "/target2:0:" + address + "/2:0:" + address + ":0");
    };
    disk("sda", "end_device-2:0", "0");
    machine.text(host + "end_device-2:0/sas_device/end_device-2:0/sas_address", "0x5000c50012345679");
    disk("sdb", "end_device-2:1", "1");
    machine.text(host + "end_device-2:1/sas_device/end_device-2:1/sas_address", "0x5000c50012345679");
    machine.text(host + "end_device-2:1/target2:0:1/2:0:1:0/sas_address", "0x4433221100000000");
    disk("sdc", "end_device-2:2", "2");
    EXPECT_EQ(of("sda"), "sas lun=0 sas-address=5764824127130326649");
    EXPECT_EQ(of("sdb"), "sas lun=0 sas-address=4914309074801131520");
    EXPECT_EQ(of("sdc"), "sas: sysfs does not tell its SAS address");
}

TEST_F(transports, of_networks_are_not_known)
{
    const std::string host = machine.function("pci0000:00/0000:00:05.0", 0x010000) + "/host2/";
    machine.disk("sda", host + "rport-2:0-1/target2:0:1/2:0:1:0");
    machine.disk("sdb", host + "session1/target2:0:2/2:0:2:0");
    EXPECT_EQ(of("sda").substr(0, 34), ": it is reached over Fibre Channel");
    EXPECT_EQ(of("sdb").substr(0, 26), ": it is reached over iSCSI");
}

TEST_F(transports, of_nvme_namespaces)
{
    const std::string controller = machine.function("pci0000:00/0000:00:06.0", 0x010802) + "/nvme/nvme0/";
    const auto add = [&](const std::string &name, const std::string &file, const std::string &contents) {
        machine.text(controller + name + "/size", "65536");
        machine.text(controller + name + "/" + file, contents);
        fs::create_directories(machine.root() / "sys/block");
        const fs::path link = machine.root() / "sys/block" / name;
        if (!fs::is_symlink(link))
            fs::create_directory_symlink("../" + (controller + name).substr(4), link);
    };
    add("nvme0n1", "nsid", "1");
    add("nvme0n1", "eui", "00 25 38 b2 21 d1 37 50");
    add("nvme0n1", "wwid", "eui.00000000000000010025384221d13750");
    add("nvme0n2", "nsid", "2");
    add("nvme0n2", "wwid", "eui.002538b221d13750");
    add("nvme0n3", "nsid", "3"); // an NGUID alone
    add("nvme0n3", "wwid", "eui.0100000001000000e4d25c000014c214");
    add("nvme0n4", "nsid", "4");
    add("nvme0n4", "eui", "00 25 38 b2 21 d1 37");
    add("nvme0n5", "wwid", "eui.002538b221d13750");
    const std::string eui = " eui64=0.37.56.178.33.209.55.80";
    EXPECT_EQ(of("nvme0n1"), "nvme namespace=1" + eui);
    EXPECT_EQ(of("nvme0n2"), "nvme namespace=2" + eui);
    EXPECT_EQ(of("nvme0n3"), "nvme namespace=3");
    EXPECT_EQ(of("nvme0n4"), "nvme namespace=4");
    EXPECT_EQ(of("nvme0n5"), "nvme: sysfs does not tell the number of its namespace");
}

TEST_F(transports, of_usb_through_hubs)
{
    const std::string ehci = machine.function("pci0000:00/0000:00:1d.0", 0x0c0320);
    scsi_disk("sda", ehci + "/usb3/3-2/3-2.4/3-2.4.1/3-2.4.1:1.3", "2:0:0:0");
    EXPECT_EQ(of("sda"), "usb interface=3 usb-ports=1.3.0");
    // A card reader: one device with several units.
    const std::string reader = ehci + "/usb3/3-1/3-1:1.0";
    scsi_disk("sdb", reader, "2:0:0:0");
    scsi_disk("sdc", reader, "2:0:0:1");
    machine.text(reader + "/host2/target2:0:0/2:0:0:1/block/sdc/removable", "1");
    EXPECT_EQ(of("sdb"), "usb lun=0 interface=0 usb-ports=0");
    EXPECT_EQ(of("sdc"), "usb lun=1 interface=0 removable=1 usb-ports=0");
    scsi_disk("sdd", ehci + "/usb3/3-0/3-0:1.0", "2:0:0:0");
    scsi_disk("sde", ehci + "/usb3/3-1.1.1.1.1.1.1.1/3-1.1.1.1.1.1.1.1:1.0", "2:0:0:0");
    scsi_disk("sdf", ehci + "/usb3/3-1", "2:0:0:0");
    for (const char *hostile : {"sdd", "sde"})
        EXPECT_EQ(of(hostile), "usb: sysfs does not tell its USB port");
    EXPECT_EQ(of("sdf"), "usb: sysfs does not tell its USB interface");
}

// The two root hubs of an xHCI controller are counted on by firmware.
TEST_F(transports, of_xhci_root_ports)
{
    const std::string other = xhci(0x8086, 0xa36d);
    scsi_disk("sda", other + "/usb1/1-3/1-3:1.0", "2:0:0:0");
    scsi_disk("sdb", other + "/usb2/2-1/2-1:1.0", "2:0:0:0");
    const std::string unknown = "usb: sysfs does not tell which port of the USB controller leads to it";
    EXPECT_EQ(of("sda"), unknown);
    EXPECT_EQ(of("sdb"), unknown);
    // ACPI has the controller's numbers.
    for (const auto &[port, number] :
         {std::pair("1-0:1.0/usb1-port3", "0x0000000b"), {"2-0:1.0/usb2-port1", "0x00000011"}}) {
        const std::string hub = std::string("/usb") + port[0] + "/";
        const std::string described = "sys/devices/LNXSYSTM:00/" + std::string(port, 1);
        machine.text(described + "/adr", number);
        fs::create_directories(machine.root() / (other + hub + port));
        fs::create_directory_symlink("../../../../../" + described.substr(12),
                                     machine.root() / (other + hub + port) / "firmware_node");
    }
    EXPECT_EQ(of("sda"), "usb interface=0 usb-ports=10");
    EXPECT_EQ(of("sdb"), "usb interface=0 usb-ports=16");
}

TEST_F(transports, of_the_emulated_xhci_begin_with_usb_3)
{
    const std::string emulated = xhci(0x1b36, 0x000d);
    scsi_disk("sda", emulated + "/usb1/1-3/1-3.2/1-3.2:1.0", "2:0:0:0");
    scsi_disk("sdb", emulated + "/usb2/2-1/2-1:1.0", "2:0:0:0");
    EXPECT_EQ(of("sda"), "usb interface=0 usb-ports=4.1");
    EXPECT_EQ(of("sdb"), "usb interface=0 usb-ports=0");
}

TEST_F(transports, of_cards)
{
    const std::string host = machine.function("pci0000:00/0000:00:1a.0", 0x080501) + "/mmc_host/";
    machine.disk("mmcblk0", host + "mmc3/mmc3:0001");
    machine.text(host + "mmc3/mmc3:0001/type", "MMC");
    machine.disk("mmcblk1", host + "mmc10/mmc10:aaaa");
    machine.text(host + "mmc10/mmc10:aaaa/type", "SD");
    machine.disk("mmcblk2", host + "mmc11/mmc11:aaaa");
    EXPECT_EQ(of("mmcblk0"), "emmc slot=0");
    EXPECT_EQ(of("mmcblk1"), "sd slot=1");
    EXPECT_EQ(of("mmcblk2"), ": sysfs does not tell whether the card is SD or MMC");
}

} // namespace
