// SPDX-License-Identifier: MIT
// Which of several disks an option leads to, and disks that firmware sees otherwise than the kernel.
#include <cerrno>

#include "tests/support/filesystems.h"
#include "tests/tool/disks.h"

namespace tool_test {

using ::testing::HasSubstr;

namespace {

const std::string root_bridge = "02010c00d041030a00000000";
const std::string function_of_sdc = "010106000003";
const std::string unit_of_sdc = "0302080001000200";

// The hard-drive node of sdc1 and of its copy: with another number or another size if so wanted.
std::string hard_drive(const std::string &number = "01", const std::string &size = "0050")
{
    return "04012a00" + number + "0000000008000000000000" + size + "000000000000" +
           "370a9f5f448ad04a9c2e1d9e6f5b7cc1" + "0202";
}

} // namespace

// sdd is a copy of sdc.
class twin_disks : public disks_verb {
protected:
    twin_disks()
    {
        std::filesystem::copy_file(root / "dev/sdc", root / "dev/sdd",
                                   std::filesystem::copy_options::overwrite_existing);
    }

    // What the creation of an option for a disk warns of.
    json warnings_of(const std::string &disk) const
    {
        const outcome made =
            run({"create", "--desc", "x", "--disk", disk, "--file", "\\a", "--dry-run", "--json"});
        return json::parse(made.out)["warnings"];
    }

    void put_option(const std::string &name, const std::string &nodes) const
    {
        put(name, load_option(1, name, from_hex(nodes + "7fff0400")));
    }
};

TEST_F(twin_disks, have_the_options_whose_hardware_leads_to_them)
{
    put_option("Boot0050", root_bridge + function_of_sdc + unit_of_sdc + hard_drive());
    put_option("Boot0051", hard_drive());
    put_option("Boot0052", root_bridge + "010106000009" + hard_drive());
    const json other_hardware = {{"Boot0052", "hardware not on this machine"}};
    for (const auto &[disk, options] : {std::pair{"sdc1", json{"Boot0050", "Boot0051", "Boot0052"}},
                                        std::pair{"sdd1", json{"Boot0051", "Boot0052"}},
                                        std::pair{"sdc", json{"Boot0050", "Boot0051", "Boot0052"}},
                                        std::pair{"sdd", json{"Boot0001", "Boot0051", "Boot0052"}}}) {
        const json found = parsed({"find", disk});
        EXPECT_EQ(found["options"], options) << disk;
        EXPECT_EQ(found["remarks"], other_hardware) << disk;
    }
    const json disks = parsed({"disks"});
    EXPECT_EQ(volume(disks, "c0t0d0s0")["options"], json({"Boot0051", "Boot0052"}));
    EXPECT_EQ(volume(disks, "c1t1d2s0")["options"], json({"Boot0050", "Boot0051", "Boot0052"}));
    EXPECT_EQ(parsed({"show", "Boot0050"})["disks"], json({"c1t1d2s0"}));
    EXPECT_EQ(parsed({"show", "Boot0051"})["disks"], json({"c0t0d0s0", "c1t1d2s0"}));
}

// What stands in front of the partition, and what is said of it.
TEST_F(twin_disks, have_options_with_hardware_that_leads_to_none)
{
    std::filesystem::remove(root / "dev/sdd");
    constexpr std::pair<const char *, const char *> rows[] = {
        {"02010c00d041030a0000000001010600000a", "hardware not on this machine"},
        {"02010c00d041030a07000000010106000003", "hardware not on this machine"},
        {"02010c00d041030a000000000101060000030302080009000000", "hardware not on this machine"},
        {"02010c00d041030a00000000010106000003", "hardware named incompletely"},
        {"02010c00d041030a00000000", "hardware named incompletely"},
        {"010106000003", "hardware named incompletely"},
        {"0302080001000200", "hardware named incompletely"},
        {"01041400112233445566778899aabbccddeeff00", "hardware cannot be checked"},
        {"02010c00d041990a00000000", "hardware cannot be checked"},
        {"03101800000001000200"
         "4100420043004400450046004700",
         ""},
    };
    uint16_t number = 0x60;
    json remarks = json::object();
    for (const auto &[nodes, remark] : rows) {
        char name[9];
        snprintf(name, sizeof name, "Boot%04X", number++);
        put_option(name, nodes + hard_drive());
        if (*remark)
            remarks[name] = remark;
        const json shown = parsed({"show", name});
        EXPECT_EQ(shown["disks"], json({"c1t1d2s0"})) << nodes;
        EXPECT_EQ(shown["remarks"], *remark ? json({{"c1t1d2s0", remark}}) : json::object()) << nodes;
    }
    EXPECT_EQ(parsed({"find", "sdc1"})["remarks"], remarks);
    EXPECT_EQ(volume(parsed({"disks", "sdc"}), "c1t1d2s0")["remarks"], remarks);
    EXPECT_THAT(output({"show", "Boot0063"}),
                HasSubstr("Disk           c1t1d2s0 (sdc1), hardware named incompletely\n"));
}

TEST_F(twin_disks, are_read_once_when_an_option_is_shown)
{
    put_option("Boot0050", root_bridge + function_of_sdc + unit_of_sdc + hard_drive());
    const auto shown_with = [this](int from) { // this and later calls fail
        surroundings around;
        around.environment = {
            {"LD_PRELOAD", OVRA_FAILING_CALLS},
            {"FAIL", "read:logical_block_size:" + std::to_string(EIO) + ':' + std::to_string(from) + ":999"}};
        return run({"show", "Boot0050"}, around);
    };
    constexpr int of_all_disks = 7 * 2; // of each its line, and the end behind it
    const outcome once = shown_with(of_all_disks + 1);
    EXPECT_EQ(once.out, output({"show", "Boot0050"}));
    EXPECT_EQ(once.err, "");
    EXPECT_NE(shown_with(of_all_disks).err, "");
}

// Firmware goes by the number and the signature, and not by the blocks.
TEST_F(twin_disks, have_the_options_that_firmware_takes_for_theirs)
{
    std::filesystem::remove(root / "dev/sdd");
    put_option("Boot0053", hard_drive("01", "0040"));
    put_option("Boot0054", hard_drive("02"));
    const json found = parsed({"find", "sdc1"});
    EXPECT_EQ(found["options"], json({"Boot0053"}));
    EXPECT_EQ(found["remarks"], json({{"Boot0053", "other extent"}}));
    const json disks = parsed({"disks", "sdc"});
    EXPECT_EQ(volume(disks, "c1t1d2s0")["remarks"], json({{"Boot0053", "other extent"}}));
    EXPECT_THAT(output({"disks", "sdc"}), HasSubstr("20480   Boot0053: other extent\n"));
    const json shown = parsed({"show", "Boot0053"});
    EXPECT_EQ(shown["disks"], json({"c1t1d2s0"}));
    EXPECT_EQ(shown["other_extent"], json({"c1t1d2s0"}));
    EXPECT_EQ(shown["remarks"], json({{"c1t1d2s0", "other extent"}}));
    EXPECT_THAT(output({"show", "Boot0053"}), HasSubstr("Disk           c1t1d2s0 (sdc1), other extent\n"));
    EXPECT_EQ(parsed({"show", "Boot0054"})["disks"], json::array());
}

TEST_F(twin_disks, differ_from_what_the_kernel_read_before)
{
    std::filesystem::remove(root / "dev/sdd");
    put_text("sys/block/sdc/sdc1/start", "4096");
    put_text("sys/block/sdc/sdc4/partition", "4");
    EXPECT_EQ(warnings_of("sdc1"),
              json({"the table on the disk has c1t1d2s0 (sdc1) at block 2048 with 20480 blocks, the kernel "
                    "at block 4096 with 20480 blocks"}));
    EXPECT_THAT(failure({"find", "sdc4"}),
                HasSubstr("ovra: the partition table of c1t1d2 (sdc) has no \"sdc4\" any more\n"));
}

TEST_F(twin_disks, that_the_kernel_makes_get_a_warning)
{
    put_partitioned_disk("loop3", "sys/devices/virtual");
    EXPECT_THAT(warnings_of("loop3p1").dump(),
                HasSubstr("(loop3p1) is on a device that the kernel makes of others or of a file"));
}

TEST_F(twin_disks, without_a_table_are_said_to_have_none)
{
    std::ofstream(root / "dev/sdd", std::ios::binary) << ovra::test::make_fat(0x1a2b3c4d, "STICK");
    std::filesystem::resize_file(root / "dev/sdd", 32 << 20);
    std::filesystem::create_directories(root / "dev/disk/by-uuid");
    std::filesystem::create_symlink("../../sdd", root / "dev/disk/by-uuid/1A2B-3C4D");
    for (const char *name : {"UUID=1A2B-3C4D", "sdd"})
        EXPECT_THAT(failure({"create", "--desc", "x", "--disk", name}),
                    HasSubstr("ovra: \"" + std::string(name) +
                              "\" is the whole disk c0t0d0 (sdd), which has a vfat file system without a "
                              "partition table\n"))
            << name;
}

TEST_F(twin_disks, are_named_with_a_slash_at_the_end)
{
    for (const char *name : {"sdd1/", "/dev/sdd1/", "c0t0d0s0//", "/dev/dsk/c0t0d0s0/"})
        EXPECT_EQ(parsed({"find", name})["kernel_name"], "sdd1") << name;
}

TEST_F(twin_disks, that_are_no_devices_are_called_so)
{
    std::filesystem::remove(root / "dev/sdd");
    std::filesystem::remove(root / "dev/sde");
    std::filesystem::create_symlink("sdc", root / "dev/sdd");
    ASSERT_EQ(mkfifo((root / "dev/sde").c_str(), 0600), 0);
    const std::string text = output({"disks"});
    EXPECT_THAT(text, HasSubstr("c0t0d0  sdd  32.0 MiB  cannot be read: its file is a link\n"));
    EXPECT_THAT(text,
                HasSubstr("  sde  8.0 MiB  cannot be read: its file is neither a device nor an image\n"));
}

TEST_F(twin_disks, have_no_file_that_was_deleted)
{
    put_text("proc/self/mountinfo", "30 1 8:1 /EFI/a.efi//deleted /mnt/a.efi rw - vfat /dev/sdc1 rw");
    put_text("mnt/a.efi", "");
    EXPECT_THAT(failure({"create", "--desc", "x", "--disk", "/mnt/a.efi"}),
                HasSubstr("ovra: \"/mnt/a.efi\" is a deleted file that is still mounted there\n"));
}

} // namespace tool_test
