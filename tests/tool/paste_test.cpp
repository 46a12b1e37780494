// SPDX-License-Identifier: MIT
#include "tests/tool/disks.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

const std::string plain_end = "7fff0400";
const std::string pci_device = "02010c00d041030a00000000010106000201";
const std::string file_a = "04040a005c0061000000";
const std::string other_file = "04040a005c0062000000";

} // namespace

class pasted_path : public disks_verb {
protected:
    // The path of the option that is created, in digits.
    std::string created(const words &arguments) const
    {
        const outcome made =
            run(words{"create", "--desc", "Pasted", "--json", "--number", "F0", "--force"} + arguments);
        EXPECT_EQ(made.status, 0) << made.err;
        return digits_of(get("Boot00F0"));
    }

    static std::string digits_of(const std::string &data)
    {
        std::string digits;
        for (const unsigned char byte : data) {
            constexpr char hex[] = "0123456789abcdef";
            digits += hex[byte >> 4];
            digits += hex[byte & 15];
        }
        return digits;
    }
};

TEST_F(pasted_path, is_created_as_its_tool_printed_it)
{
    const std::string text = "PciRoot(0x0)/Pci(0x1d,0x0)/NVMe(0x1,11-22-33-44-55-66-77-88)/File(\\a)";
    EXPECT_THAT(created({"--devpath", text}), HasSubstr("0317100001000000"
                                                        "1122334455667788" +
                                                        file_a + plain_end));
    const outcome said = run({"create", "--desc", "Again", "--devpath", text, "-v"});
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.err,
              "The path is read as text of efibootmgr.\n"
              "NVMe(0x1,11-22-33-44-55-66-77-88) is read as efibootmgr prints it, the first byte first.\n");
}

TEST_F(pasted_path, replaces_what_it_has)
{
    put("Boot0000", load_option(1, "Old", from_hex("010106000102" + file_a + plain_end)));
    EXPECT_EQ(run({"set", "Boot0000", "--devpath", "FvVol(11111111-1111-1111-1111-111111111111)"}).status, 0);
    const std::string volume = "0407140011111111111111111111111111111111";
    EXPECT_THAT(digits_of(get("Boot0000")), HasSubstr(volume + file_a + plain_end));
    // A file alone leaves the devices.
    EXPECT_EQ(run({"set", "Boot0000", "--devpath", "File(\\b)"}).status, 0);
    EXPECT_THAT(digits_of(get("Boot0000")), HasSubstr(volume + other_file + plain_end));
    // What only a whole path can have.
    EXPECT_THAT(failure({"set", "Boot0000", "--devpath", "PciRoot(0x0),PciRoot(0x1)"}),
                StartsWith("ovra: the path has several instances\n"));
    EXPECT_THAT(failure({"set", "Boot0000", "--devpath", "File(\\a)/File(\\b)"}),
                StartsWith("ovra: the path has a file before its end\n"));
}

TEST_F(pasted_path, has_one_file)
{
    const std::string text = "PciRoot(0x0)/Pci(0x1,0x2)/File(\\a)";
    // The same file twice is one, however it is written.
    for (const char *file : {"\\a", "/a"})
        EXPECT_THAT(created({"--devpath", text, "--file", file}), HasSubstr(pci_device + file_a + plain_end));
    const auto before = snapshot();
    const outcome two = run({"create", "--desc", "Two", "--devpath", text, "--file", "\\b"});
    EXPECT_EQ(two.status, 2);
    EXPECT_THAT(two.err, StartsWith("ovra: the path names a file, \"\\a\", and --file another\n"));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(pasted_path, leaves_values_open_with_a_warning)
{
    const outcome said = run({"path", "encode", "IPv4(0.0.0.00.0.0.0,0,0)"});
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.out, "030c1b0000000000000000000000000000000000000000000000007fff0400\n");
    EXPECT_THAT(whole(said.err), HasSubstr("warning: IPv4(0.0.0.00.0.0.0,0,0) leaves values open; taken are "
                                           "gateway and subnet mask 0.0.0.0"));
    const outcome none = run({"path", "encode", "PciRoot(0x0)/Pci(0x1,0x2)"});
    EXPECT_EQ(none.out, pci_device + plain_end + "\n");
    EXPECT_EQ(none.err, "");
}

// A partition without its blocks is looked up on the disks of the machine.
TEST_F(pasted_path, finds_the_blocks_of_a_partition)
{
    const std::string partuuid = "5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7cd1";
    const outcome short_form = run({"path", "encode", "HD(1,GPT," + partuuid + ")/File(\\a)"});
    EXPECT_EQ(short_form.status, 0) << short_form.err;
    const std::string by_name = created({"--disk", "PARTUUID=" + partuuid, "--file", "\\a"});
    const std::string packed = short_form.out.substr(0, short_form.out.size() - 1);
    EXPECT_THAT(by_name, HasSubstr(packed));
    EXPECT_EQ(run({"path", "encode", "HD(Part1,Sig" + partuuid + ")/File(\\a)"}).out, short_form.out);

    EXPECT_THAT(failure({"path", "encode", "HD(2,GPT," + partuuid + ")"}), HasSubstr("has the number 1"));
    EXPECT_THAT(failure({"path", "encode", "HD(1,GPT,11111111-1111-1111-1111-111111111111)"}),
                HasSubstr("no disk of this machine has a partition with the PARTUUID"));
}

// Of several disks the hardware in front of the partition tells which is meant.
TEST_F(pasted_path, finds_the_blocks_on_the_disk_that_its_hardware_leads_to)
{
    const std::string partition = "HD(1,GPT,5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7cc1)";
    const std::string way_to_sdc = "PciRoot(0x0)/Pci(0x3,0x0)/SCSI(1,2)/";
    const std::string blocks = "04012a0001000000000800000000000000500000";
    const auto is_taken = [&](const std::string &text, const std::string &disk) {
        const outcome said = run({"path", "encode", text + "/File(\\a)"});
        EXPECT_THAT(said.out, HasSubstr(blocks)) << text << said.err;
        EXPECT_EQ(whole(said.err), partition + " is read with the blocks of " + disk + ".\n") << text;
    };
    const auto is_refused = [this](const std::string &text, const std::string &why) {
        EXPECT_THAT(whole(failure({"path", "encode", text})), HasSubstr("it has no blocks, and " + why))
            << text;
    };
    const std::string the_partition = "the partition with the PARTUUID 5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7cc1";
    is_taken(partition, "c1t1d2s0 (sdc1)");
    is_taken(way_to_sdc + partition, "c1t1d2s0 (sdc1)");
    is_taken("VenHw(11111111-1111-1111-1111-111111111111)/" + partition, "c1t1d2s0 (sdc1)");
    is_taken(partition + "," + partition, "c1t1d2s0 (sdc1)");
    is_refused("PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0,65535,0)/" + partition,
               the_partition +
                   " is c1t1d2s0 (sdc1): the hardware in front of it leads to the disk c5t0d0 (sda)");
    is_refused("PciRoot(0x0)/Pci(0xa,0x0)/SCSI(1,2)/" + partition,
               "the hardware in front of it is not on this machine: " + the_partition +
                   " is c1t1d2s0 (sdc1)");

    std::filesystem::copy_file(root / "dev/sdc", root / "dev/sdd",
                               std::filesystem::copy_options::overwrite_existing);
    is_taken(way_to_sdc + partition, "c1t1d2s0 (sdc1)");
    is_refused(partition, "several partitions of this machine have the PARTUUID "
                          "5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7cc1: c0t0d0s0 (sdd1) and c1t1d2s0 (sdc1)");
}

// Of blocks without letters in their digits the disks tell whether they are hexadecimal.
TEST_F(pasted_path, takes_its_blocks_as_the_disk_has_them)
{
    const std::string partuuid = "5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7cd1";
    const std::string node = run({"path", "encode", "HD(1,GPT," + partuuid + ")"}).out;
    for (const auto &[blocks, base] : {std::pair{"2048,20480", "decimal"}, {"800,5000", "hexadecimal"}}) {
        for (const std::string &text : {"HD(1," + std::string(blocks) + ',' + partuuid + ')',
                                        "HD(1,GPT," + partuuid + ',' + blocks + ')'}) {
            const outcome packed = run({"path", "encode", text});
            EXPECT_EQ(packed.out, node) << text;
            EXPECT_THAT(packed.err, HasSubstr("in " + std::string(base) + ", as /dev/sdd1 has them"));
        }
    }
}

TEST_F(pasted_path, that_is_refused_names_the_node)
{
    const std::string hd = "HD(1,GPT,5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01,0x800,0x1)";
    EXPECT_EQ(failure({"path", "encode", "PciRoot(0x0)/NVMe(0x1,00-25)/eMMC(0)"}),
              "ovra: node 2 of the path cannot be packed: \"NVMe(0x1,00-25)\"\n"
              "  PciRoot(0x0)/NVMe(0x1,00-25)/eMMC(0)\n"
              "               ^^^^^^^^^^^^^^^\n"
              "  the identifier of a namespace is eight bytes, as 00-25-38-00-00-00-00-01\n");
    const std::string said = failure({"path", "encode", hd + "/File(\\EFI\\a.efi)WINDOWS"});
    EXPECT_THAT(said, HasSubstr(hd + "/File(\\EFI\\a.efi)WINDOWS\n  " + std::string(hd.size() + 17, ' ') +
                                "^^^^^^^\n"));
    const outcome slash = run({"path", "encode", hd + "/\\EFI\\a/b.efi"});
    EXPECT_EQ(slash.status, 2);
    EXPECT_THAT(slash.err, HasSubstr("a slash may stand for a backslash"));
    EXPECT_THAT(failure({"path", "encode", "PciRoot(0x0),PciRoot(0x1)", "--file", "\\a"}),
                StartsWith("ovra: the path has several instances: --file belongs to one\n"));
}

} // namespace tool_test
