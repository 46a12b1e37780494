// SPDX-License-Identifier: MIT
// The full form of a disk's path, which is what firmware writes, and the options that name a whole disk.
#include "tests/tool/disks.h"

namespace tool_test {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class full_form : public disks_verb {
protected:
    // The packed full form; a file is named where firmware asks for one.
    [[nodiscard]] std::string path_of(const std::string &disk) const
    {
        const outcome made = created({"--disk", disk, "--full", "--file", "\\a"});
        EXPECT_EQ(made.status, 0) << made.err;
        return json::parse(made.out)["changes"][0]["path"];
    }

    [[nodiscard]] outcome created(const words &more) const
    {
        return run(words{"create", "--desc", "x", "--dry-run", "--json"} + more);
    }

    // Its text, without the partition.
    [[nodiscard]] std::string text_of(const std::string &disk) const
    {
        const json shown = parsed({"path", "decode", path_of(disk)});
        const json &first = shown["instances"][0];
        const std::string text = first.value("uefi_text", first["device_path"].get<std::string>());
        return text.substr(0, text.find("/HD("));
    }

    [[nodiscard]] std::string refusal_of(const std::string &disk) const
    {
        const outcome refused = created({"--disk", disk, "--full", "--file", "\\a"});
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(json::parse(refused.out)["error"]["reason"], HasSubstr("the full form of "));
        EXPECT_THAT(whole(refused.err),
                    HasSubstr("\n  Without --full the path is the short form, which firmware "
                              "finds on any controller.\n"));
        const std::string said = whole(refused.err);
        const size_t reason = said.find("is not known: ");
        EXPECT_NE(reason, std::string::npos) << said;
        return said.substr(reason + 14, said.find('\n') - reason - 14);
    }

    void put_function(const std::string &place, const std::string &class_code,
                      const std::string &vendor = "0x8086", const std::string &device = "0x1234") const
    {
        for (const auto &[file, text] : {std::pair<std::string, std::string>("vendor", vendor),
                                         {"device", device},
                                         {"revision", "0x01"},
                                         {"class", class_code}})
            put_text(place + "/" + file, text);
    }

    // Makes a disk without partitions one with two.
    void put_table(const std::string &name, uint64_t blocks) const
    {
        ovra::test::write_gpt(root / "dev" / name, blocks,
                              ovra::test::make_gpt(blocks, {{1, 2048, 4095}, {2, 4096, 8191}}));
    }
};

// Less the partition and the file.
TEST_F(full_form, is_the_path_that_firmware_made)
{
    put_table("sde", 16384);
    put_table("vda", 16384);
    const std::pair<const char *, const char *> options[] = {{"Boot0001", "sdd1"}, {"Boot0002", "nvme0n1p1"},
                                                             {"Boot0003", "sde1"}, {"Boot0004", "vda1"},
                                                             {"Boot0005", "sda2"}, {"Boot0006", "sdb1"}};
    for (const auto &[option, disk] : options) {
        const std::string own = parsed({"show", option})["path"];
        const std::string end = "7fff0400";
        ASSERT_TRUE(own.ends_with(end));
        const std::string full = path_of(disk);
        EXPECT_EQ(full.substr(0, full.find("04012a00")) + end, own) << disk;
    }
}

TEST_F(full_form, has_the_nodes_of_the_transport)
{
    const std::string bus = "sys/devices/pci0000:00/0000:00:";
    put_function(bus + "10.0", "0x010700");
    put_partitioned_disk("sdg", bus + "10.0/host9/port-9:0/end_device-9:0/target9:0:0/9:0:0:2");
    put_text(bus + "10.0/host9/port-9:0/end_device-9:0/target9:0:0/9:0:0:2/sas_address",
             "0x5000c50012345679");
    put_function(bus + "11.0", "0x010180");
    put_partitioned_disk("sdh", bus + "11.0/ata9/host10/target10:0:1/10:0:1:0");
    put_text(bus + "11.0/ata9/ata_port/ata9/port_no", "2");
    put_function(bus + "12.0", "0x0c0320");
    put_partitioned_disk("sdi", bus + "12.0/usb3/3-2/3-2.4/3-2.4:1.1/host11/target11:0:0/11:0:0:1");
    put_function(bus + "13.0", "0x080501");
    put_partitioned_disk("mmcblk0", bus + "13.0/mmc_host/mmc0/mmc0:0001");
    put_text(bus + "13.0/mmc_host/mmc0/mmc0:0001/type", "MMC");
    put_function(bus + "14.0", "0x080501");
    put_partitioned_disk("mmcblk1", bus + "14.0/mmc_host/mmc1/mmc1:aaaa");
    put_text(bus + "14.0/mmc_host/mmc1/mmc1:aaaa/type", "SD");
    put_function(bus + "15.0", "0x010901");
    put_partitioned_disk("sdj", bus + "15.0/host12/target12:0:0/12:0:0:3");
    put_function(bus + "16.0", "0x010601");
    put_partitioned_disk("sdk", bus + "16.0/ata10/host13/target13:2:0/13:2:0:0");
    put_text(bus + "16.0/ata10/ata_port/ata10/port_no", "2");
    put_text(bus + "16.0/ata10/ata_port/ata10/nr_pmp_links", "5");
    EXPECT_THAT(path_of("sdg1"), HasSubstr("010106000010"
                                           "030a2c00b4dd87d48b00d911afdc001083ffca4d0000000079563412"
                                           "00c5005002000000000000000000000004012a00"));
    EXPECT_EQ(text_of("sdh1"), "/PciRoot(0x0)/Pci(0x11,0x0)/Ata(Secondary,Slave,0)");
    EXPECT_EQ(text_of("sdi1"), "PciRoot(0x0)/Pci(0x12,0x0)/USB(0x1,0x0)/USB(0x3,0x1)/Unit(0x1)");
    EXPECT_EQ(text_of("mmcblk0p1"), "PciRoot(0x0)/Pci(0x13,0x0)/eMMC(0x0)/Ctrl(0x0)");
    EXPECT_EQ(text_of("mmcblk1p1"), "PciRoot(0x0)/Pci(0x14,0x0)/SD(0x0)");
    EXPECT_EQ(text_of("sdj1"), "PciRoot(0x0)/Pci(0x15,0x0)/UFS(0x0,0x3)");
    EXPECT_EQ(text_of("sdk1"), "/PciRoot(0x0)/Pci(0x16,0x0)/Sata(0x1,0x2,0x0)");
    put_text("sys/devices/pci0000:00/0000:00:04.0/nvme/nvme0/nvme0n1/eui", "00 25 38 b2 21 d1 37 50");
    EXPECT_EQ(text_of("nvme0n1p1"), "PciRoot(0x0)/Pci(0x4,0x0)/NVMe(0x1,50-37-D1-21-B2-38-25-00)");
}

TEST_F(full_form, is_refused_where_it_is_not_known)
{
    const std::string bus = "sys/devices/pci0000:00/0000:00:";
    put_function(bus + "10.0", "0x0c0330");
    put_text(bus + "10.0/usb1/speed", "480");
    put_text(bus + "10.0/usb2/speed", "5000");
    put_partitioned_disk("sdg", bus + "10.0/usb2/2-1/2-1:1.0/host9/target9:0:0/9:0:0:0");
    put_function(bus + "11.0", "0x0c0400");
    put_partitioned_disk("sdh", bus + "11.0/host10/rport-10:0-0/target10:0:0/10:0:0:0");
    put_partitioned_disk("pmem0", bus + "11.0/region0/namespace0.0");
    EXPECT_EQ(refusal_of("sdg1"), "sysfs does not tell which port of the USB controller leads to it");
    EXPECT_THAT(refusal_of("sdh1"), HasSubstr("it is reached over Fibre Channel"));
    EXPECT_EQ(refusal_of("pmem0p1"), "how it is attached to its controller is not known");
    put_text("sys/devices/LNXSYSTM:00/LNXSYBUS:00/PNP0A08:00/uid", "PC00");
    EXPECT_EQ(refusal_of("sda1"), "its host bridge has \"PC00\" for a number");
    put_text("sys/devices/LNXSYSTM:00/LNXSYBUS:00/PNP0A08:00/hid", "ACPI0016");
    EXPECT_EQ(refusal_of("sda1"), "its host bridge is described as ACPI0016, which is no PCI host bridge's");
    // The short form needs none of it.
    EXPECT_EQ(created({"--disk", "sdg1", "--file", "\\a"}).status, 0);
    EXPECT_EQ(created({"--disk", "sda1", "--file", "\\a"}).status, 0);
}

TEST_F(full_form, has_a_warning_where_firmware_may_have_another)
{
    const auto warning_of = [this](const std::string &disk) -> std::string {
        const outcome made = created({"--disk", disk, "--full", "--file", "\\a"});
        EXPECT_EQ(made.status, 0) << made.err;
        const json warnings = json::parse(made.out).value("warnings", json::array());
        EXPECT_LE(warnings.size(), 1U);
        const std::string warning = warnings.empty() ? "" : warnings[0]["text"].get<std::string>();
        EXPECT_THAT(whole(made.err), HasSubstr(warning));
        return warning;
    };
    EXPECT_EQ(warning_of("sda1"), "");
    const std::string may = "the firmware may not start the path: ";
    put_function("sys/devices/pci0000:00/0000:00:10.0", "0x010400");
    put_partitioned_disk("sdg", "sys/devices/pci0000:00/0000:00:10.0/host9/target9:2:0/9:2:0:0");
    EXPECT_EQ(warning_of("sdg1"), may + "the driver of a RAID controller may name its disks otherwise");
    put_function("sys/devices/pci0000:00/0000:00:11.0", "0x010000");
    put_partitioned_disk("sdh", "sys/devices/pci0000:00/0000:00:11.0/host10/target10:1:0/10:1:0:0");
    EXPECT_EQ(
        warning_of("sdh1"),
        may + "the disk is on another channel of its controller than the first, which a path does not name");
    fs::remove(root / "sys/devices/pci0000:00/firmware_node");
    EXPECT_EQ(warning_of("sda1"), may + "the host bridge has no number of the firmware's, 0 is taken");
}

// Paths from which nothing starts.
TEST_F(full_form, is_warned_of_like_other_paths)
{
    const auto warnings_of = [this](const words &more) {
        const outcome made = created(more);
        EXPECT_EQ(made.status, 0) << made.err;
        std::vector<std::string> said;
        const json document = json::parse(made.out);
        for (const json &each : document["warnings"])
            said.push_back(each["text"]);
        return said;
    };
    using all = std::vector<std::string>;
    const std::string no_file = "the path names no file on its disk";
    const std::string number = "the path has the number 0 for ";
    EXPECT_EQ(warnings_of({"--disk", "sda1"}), all{no_file});
    EXPECT_EQ(warnings_of({"--disk", "sda1", "--full"}), all{no_file});
    EXPECT_EQ(warnings_of({"--disk", "sda1", "--file", "\\a"}), all{});
    EXPECT_EQ(warnings_of({"--disk", "sdb5", "--file", "\\a"}),
              all{number + "c5t3d0p5 (sdb5), a logical partition"});
    EXPECT_EQ(warnings_of({"--disk", "c5t3d0p0", "--file", "\\a"}),
              all{number + "c5t3d0p0 (sdb), a whole disk"});
    EXPECT_EQ(warnings_of({"--disk", "c5t3d0p0"}), (all{number + "c5t3d0p0 (sdb), a whole disk", no_file}));
    EXPECT_EQ(warnings_of({"--devpath", "HD(0,MBR,0x1234ABCD)\\a"}), all{number + "its partition"});
    EXPECT_EQ(warnings_of({"--devpath", "/PciRoot(0)/Pci(1,0)/Sata(0,0xffff,0)"}), all{no_file});
    EXPECT_EQ(warnings_of({"--devpath", "/PciRoot(0)/Pci(1,0)/USB(0,0)/HD(1,MBR,0x1,0x800,0x800)"}), all{});
    EXPECT_EQ(warnings_of({"--path-hex", "0317100001000000000000000000000"
                                         "07fff0400"}),
              all{no_file});
    put_text("sys/devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0/block/sda/removable", "1");
    EXPECT_EQ(warnings_of({"--disk", "sda1"}), all{});
}

class whole_disks : public full_form {};

TEST_F(whole_disks, have_the_options_that_firmware_made)
{
    const std::pair<const char *, const char *> options[] = {
        {"Boot0001", "c0t0d0"}, {"Boot0002", "/dev/nvme0n1"}, {"Boot0003", "sde"},
        {"Boot0004", "vda"},    {"Boot0005", "sda"},          {"Boot0006", "/dev/dsk/c5t3d0"}};
    const json disks = parsed({"disks"});
    for (const auto &[option, disk] : options) {
        const json found = parsed({"find", disk});
        EXPECT_EQ(found["options"], json({option})) << disk;
        const auto listed = std::find_if(disks["disks"].begin(), disks["disks"].end(),
                                         [&](const json &each) { return each["drive"] == found["disk"]; });
        ASSERT_NE(listed, disks["disks"].end()) << disk;
        EXPECT_EQ((*listed)["options"], found["options"]) << disk;
        EXPECT_EQ(parsed({"show", option})["disks"], json({found["disk"]})) << disk;
        EXPECT_EQ((*listed)["kernel_name"], found["kernel_name"]) << disk;
    }
    EXPECT_EQ(run({"find", "sda"}).err, "sda is c5t0d0, /dev/sda.\n");
    EXPECT_EQ(run({"find", "sdb"}).err, "sdb is c5t3d0, /dev/sdb, MBR signature 1234abcd.\n");
    EXPECT_EQ(run({"find", "sdc"}).out, "no option boots from c1t1d2 (sdc)\n");
    EXPECT_EQ(parsed({"find", "sda1"})["options"], json::array());
}

TEST_F(whole_disks, have_the_options_of_their_partitions)
{
    EXPECT_EQ(run({"create", "--desc", "x", "--disk", "sda2", "--file", "\\a"}).status, 0);
    EXPECT_EQ(run({"create", "--desc", "x", "--disk", "sda1", "--full", "--file", "\\a"}).status, 0);
    // A partition that is gone, on this hardware, as the library and as old firmware write it.
    const std::string gone = "/HD(7,GPT,5F9F0A37-8A44-4AD0-9C2E-000000000000,0x800,0x800)\\a";
    for (const char *sata : {"0xffff", "0x8000", "0x0", "0x1"})
        output({"create", "--desc", "x", "--devpath",
                "/PciRoot(0)/Pci(0x1f,2)/Sata(0," + std::string(sata) + ",0)" + gone});
    const std::vector<std::string> expected = {"Boot0005", "Boot0008", "Boot0009",
                                               "Boot000A", "Boot000B", "Boot000C"};
    EXPECT_EQ(parsed({"find", "sda"})["options"], json(expected));
    EXPECT_EQ(parsed({"find", "sda2"})["options"], json({"Boot0008"}));
    EXPECT_THAT(output({"disks"}), HasSubstr("disk@0,0\n"
                                             "  Options     Boot0005 Boot000A Boot000B\n"
                                             "              Boot000C\n"
                                             "  Name "));
}

// Named by what leads to it or is on it; with --part it is one of its partitions.
TEST_F(whole_disks, are_known_by_any_spelling)
{
    fs::create_directories(root / "dev/disk/by-id");
    fs::create_symlink("../../sda", root / "dev/disk/by-id/ata-QEMU");
    put_text("proc/self/mountinfo", "20 1 8:99 / / rw - ext4 /dev/sdx1 rw\n"
                                    "30 20 8:0 / /stick rw - vfat /dev/sda rw\n");
    put_text("stick/a", "");
    for (const char *name : {"/dev/disk/by-id/ata-QEMU", "//dev/./sda", "/stick", "/stick/a"}) {
        const json found = parsed({"find", name});
        EXPECT_EQ(found["disk"], "c5t0d0") << name;
        EXPECT_EQ(found["options"], json({"Boot0005"})) << name;
    }
    EXPECT_EQ(run({"find", "/stick"}).err, "/stick is on c5t0d0, /dev/sda.\n");
    EXPECT_EQ(parsed({"find", "sda", "--part", "2"})["disk"], "c5t0d0s1");
}

// An option holds a list of paths.
TEST_F(whole_disks, have_the_options_that_name_them_later)
{
    const std::string other = "01010600020204040a005c00610000007fff0400";
    const std::string sata = parsed({"show", "Boot0005"})["path"];
    const std::string slice =
        json::parse(created({"--disk", "sda2", "--file", "\\a"}).out)["changes"][0]["path"];
    put("Boot0010", load_option(1, "list", from_hex(other + sata)));
    put("Boot0011", load_option(1, "list", from_hex(other + slice + "00")));
    EXPECT_EQ(parsed({"find", "sda"})["options"], json({"Boot0005", "Boot0010", "Boot0011"}));
    EXPECT_EQ(parsed({"find", "sda2"})["options"], json({"Boot0011"}));
    EXPECT_THAT(output({"show", "Boot0010"}),
                HasSubstr("Device path    /Pci(0x2,0x2)\n"
                          "File path      \\a\n"
                          "Further path   /PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)\n"));
    EXPECT_THAT(output({"list", "-v"}),
                HasSubstr("further path   /PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)\n"));
    EXPECT_THAT(output({"list", "-v"}),
                HasSubstr("text in UEFI   PciRoot(0x0)/Pci(0x4,0x0)/NVMe(0x1,00-00-"));
}

TEST_F(whole_disks, of_ide_are_known_by_both_forms)
{
    const std::string ide = "sys/devices/pci0000:00/0000:00:1f.1";
    put_function(ide, "0x010180");
    put_partitioned_disk("sdi", ide + "/ata9/host9/target9:0:1/9:0:1:0");
    put_text(ide + "/ata9/ata_port/ata9/port_no", "2");
    const std::string nodes = "02010c00d041030a00000000"
                              "01010600011f";
    const std::string ata = "03010800010100007fff0400";
    put("Boot0010", load_option(1, "firmware", from_hex(nodes + ata)));
    put("Boot0011", load_option(1, "library", from_hex(nodes + "01010600011f" + ata)));
    EXPECT_EQ(parsed({"find", "sdi"})["options"], json({"Boot0010", "Boot0011"}));
}

} // namespace tool_test
