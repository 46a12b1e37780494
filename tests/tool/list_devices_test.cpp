// SPDX-License-Identifier: MIT
// Where options lead, in the words of "ovra list".
#include "tests/tool/disks.h"

namespace tool_test {

using ::testing::HasSubstr;

class listed_devices : public disks_verb {
protected:
    // The nodes of a text, and an END node.
    std::string packed(const std::string &text) const
    {
        return from_hex(json::parse(run({"path", "encode", text, "--json"}).out)["path"].get<std::string>());
    }

    // The words for options with these paths, with the disks read or not.
    std::vector<std::string> devices(const std::vector<std::string> &paths, bool reads_disks = true) const
    {
        for (size_t at = 0; at < paths.size(); ++at)
            put("Boot002" + std::string(1, static_cast<char>('0' + at)), load_option(1, "x", paths[at]));
        std::vector<std::string> said;
        const json document = parsed(reads_disks ? words{"list", "-v"} : words{"list"});
        for (const json &option : document["options"]) {
            if (option["option"].get<std::string>() >= "Boot0020")
                said.push_back(option["device"]);
        }
        return said;
    }

    std::string guid() const { return volume(parsed({"disks"}), "c5t5d0s0")["guid"]; }

    const std::string sata = "PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x5,0xffff,0x0)";
};

TEST_F(listed_devices, are_named_as_linux_does_with_their_files)
{
    put_partitioned_disk("sdx", "sys/devices/pci0000:00/0000:00:1f.2/ata6/host5/target5:0:0/5:0:0:0");
    const std::string slice = "HD(1,GPT," + guid() + ",0x800,0x800)";
    EXPECT_THAT(
        devices({packed(slice + "/\\EFI\\debian\\shimx64.efi"), packed(sata + "/" + slice + "/\\a"),
                 packed(slice), packed(sata), packed(sata + "/CDROM(0x0,0x1,0x2)")}),
        ::testing::ElementsAre("sdx1 \\EFI\\debian\\shimx64.efi", "sdx1 \\a", "sdx1", "sdx", "CD-ROM"));
    EXPECT_THAT(output({"list", "-v"}), HasSubstr("Boot0020  *       x" + std::string(23, ' ') +
                                                  "sdx1 \\EFI\\debian\\shimx64.efi\n"));
}

// Firmware may take either without hardware in front.
TEST_F(listed_devices, of_copies_are_named_all)
{
    put_partitioned_disk("sdx", "sys/devices/pci0000:00/0000:00:1f.2/ata6/host5/target5:0:0/5:0:0:0");
    put_partitioned_disk("sdy", "sys/devices/pci0000:00/0000:00:1f.2/ata5/host4/target4:0:0/4:0:0:0");
    const std::string slice = "HD(1,GPT," + guid() + ",0x800,0x800)";
    EXPECT_THAT(devices({packed(slice), packed(sata + "/" + slice)}),
                ::testing::ElementsAre("sdy1 or sdx1", "sdx1"));
}

TEST_F(listed_devices, that_no_disk_has_are_named_as_the_path_does)
{
    const std::string guid = "01234567-89ab-cdef-0123-456789abcdef";
    const std::string slice = packed("HD(1,GPT," + guid + ",0x800,0x800)");
    std::string unsigned_partition = slice;
    unsigned_partition[41] = 0; // the type of the signature
    EXPECT_THAT(devices({slice, packed("HD(2,MBR,0x5678abcd,0x800,0x800)"), unsigned_partition}),
                ::testing::ElementsAre("PARTUUID=" + guid, "PARTUUID=5678abcd-02", "a partition"));
    // What udev knows anybody may see.
    std::filesystem::create_directories(root / "dev/disk/by-partuuid");
    std::ofstream(root / "dev/sdq1") << "";
    std::filesystem::create_symlink("../../sdq1", root / "dev/disk/by-partuuid" / guid);
    EXPECT_THAT(devices({slice, packed(sata)}, false),
                ::testing::ElementsAre("sdq1", "SATA device", "a partition"));
    std::filesystem::remove_all(root / "sys/block"); // no disk is looked at
    EXPECT_EQ(devices({slice}, false)[0], "sdq1");
}

TEST_F(listed_devices, that_are_no_disks_have_words_too)
{
    const std::string card = "MAC(525400123456,1)/IPv4(0.0.0.0)";
    EXPECT_THAT(
        devices({packed(card), packed(card + "/Uri(https://boot.example/a.efi)"), packed("Uri()"),
                 packed("BBS(HD,disk)"), packed("Fv(7CB8BDC9-F8EB-4F34-AAEA-3EE4AF6516A1)"),
                 packed("\\EFI\\BOOT\\BOOTX64.EFI"), packed("PciRoot(0x0)/Pci(0x6,0x1)"),
                 from_hex("7fff0400"), packed("PciRoot(0x0)/Pci(0x6,0x1),BBS(CDROM,x)"), "\x04\x04\x03"}),
        ::testing::ElementsAre("network MAC 52:54:00:12:34:56 IPv4",
                               "network MAC 52:54:00:12:34:56 IPv4 https://boot.example/a.efi", "network",
                               "legacy hard disk", "firmware volume", "\\EFI\\BOOT\\BOOTX64.EFI",
                               "/PciRoot(0x0)/Pci(0x6,0x1)", "none", "/PciRoot(0x0)/Pci(0x6,0x1) and others",
                               "damaged path"));
}

TEST_F(listed_devices, move_or_stand_in_a_line_of_their_own_within_80_columns)
{
    put("Boot0000", load_option(1, std::string(28, 'a'), packed("\\EFI\\BOOT\\BOOTX64.EFI")));
    put("Boot0001", load_option(1, "a", packed("\\" + std::string(46, 'f'))));
    put("Boot0002", load_option(1, std::string(30, 'a'), packed("\\" + std::string(21, 'f'))));
    put("Boot0004", load_option(1, std::string(60, 'a'), packed("\\f")));
    const std::string text = output({"list"});
    const std::string space(28, ' ');
    EXPECT_THAT(text, HasSubstr("\n0         Boot0000  *       " + std::string(28, 'a') +
                                "  \\EFI\\BOOT\\BOOTX64.EFI\n"));
    EXPECT_THAT(text, HasSubstr("\n1         Boot0001  *       a    \\" + std::string(46, 'f') + "\n"));
    EXPECT_THAT(text, HasSubstr(std::string(30, 'a') + '\n' + space + '\\' + std::string(21, 'f') + "\n"));
    EXPECT_THAT(text, HasSubstr(std::string(60, 'a') + '\n' + space + "\\f\n"));
}

} // namespace tool_test
