// SPDX-License-Identifier: MIT
// Disks by what identifies their file systems, by number, and as the new device of an option.
#include "tests/support/filesystems.h"
#include "tests/tool/disks.h"

namespace tool_test {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class disk_tags : public disks_verb {
protected:
    disk_tags()
    {
        put(volume("c5t0d0s0"), ovra::test::make_fat(0x1a2b3c4d, "EFI SYSTEM"));
        put(volume("c5t3d0p1"), ovra::test::make_ext2("0123456789abcdef", "root/1"));
    }

    struct place {
        std::string image;
        uint64_t start = 0; // in bytes
    };

    place volume(const std::string &name) const
    {
        const auto [volume, disk] = volume_and_disk(parsed({"disks"}), name);
        return {disk["kernel_name"], volume["start"].get<uint64_t>() * disk["block_size"].get<uint64_t>()};
    }

    void put(const place &where, const std::string &data) const
    {
        std::fstream stream(root / "dev" / where.image, std::ios::binary | std::ios::in | std::ios::out);
        stream.seekp(static_cast<std::streamoff>(where.start));
        stream << data << std::flush;
        ASSERT_TRUE(stream);
    }
    using Machine::put;

    std::string found(const words &name) const
    {
        const outcome result = run(words{"find", "--json"} + name);
        return result.status == 0 ? json::parse(result.out)["disk"].get<std::string>() : whole(result.err);
    }

    const std::string uuid = "30313233-3435-3637-3839-616263646566";
};

TEST_F(disk_tags, name_the_partition_of_a_file_system)
{
    EXPECT_EQ(found({"UUID=1A2B-3C4D"}), "c5t0d0s0");
    EXPECT_EQ(found({"uuid=1a2b-3c4d"}), "c5t0d0s0");
    EXPECT_EQ(found({"UUID=" + uuid}), "c5t3d0p1");
    EXPECT_EQ(found({"LABEL=EFI SYSTEM"}), "c5t0d0s0");
    EXPECT_EQ(found({"LABEL=root/1"}), "c5t3d0p1");
    EXPECT_EQ(run({"find", "LABEL=root/1"}).err,
              "LABEL=root/1 is c5t3d0p1, /dev/sdb1, PARTUUID=1234abcd-01.\n");
    for (const char *none : {"UUID=", "LABEL=", "PARTLABEL=", "LABEL=EFI", "LABEL=efi system",
                             "LABEL=EFI\\x20SYSTEM", "UUID=1A2B", "PARTLABEL=EFI SYSTEM", "LABEL=a\nb"})
        EXPECT_THAT(found({none}), HasSubstr("ovra: no disk is named \"")) << none;
}

// Where udev has made no link its names say the same, with its escapes.
TEST_F(disk_tags, are_in_the_names_of_links_too)
{
    EXPECT_EQ(found({"/dev/disk/by-uuid/1A2B-3C4D"}), "c5t0d0s0");
    EXPECT_EQ(found({"/dev/disk/by-label/EFI\\x20SYSTEM"}), "c5t0d0s0");
    EXPECT_EQ(found({"/dev//disk/by-label/root\\x2f1"}), "c5t3d0p1");
    EXPECT_THAT(found({"/dev/disk/by-label/EFI\\x2"}), HasSubstr("no disk is named"));
    fs::create_directories(root / "dev/disk/by-label");
    fs::create_symlink("../../sdb5", root / "dev/disk/by-label/root\\x2f1");
    EXPECT_EQ(found({"/dev/disk/by-label/root\\x2f1"}), "c5t3d0p5") << "a link holds";
}

TEST_F(disk_tags, that_two_have_are_refused)
{
    put(volume("c5t3d0p5"), ovra::test::make_fat(0x1a2b3c4d, "EFI SYSTEM"));
    for (const char *name : {"UUID=1A2B-3C4D", "LABEL=EFI SYSTEM"})
        EXPECT_EQ(found({name}), "ovra: \"" + std::string(name) +
                                     "\" names more than one disk\n"
                                     "  They are c5t0d0s0 (sda1) and c5t3d0p5 (sdb5). 'ovra disks' shows the "
                                     "disks with their names.\n");
    EXPECT_EQ(found({"c5t3d0p5"}), "c5t3d0p5");
}

TEST_F(disk_tags, name_a_slice_by_its_entry)
{
    put_disk("sdz", "sys/devices/pci0000:00/0000:00:03.0/virtio0/host6/target6:0:9/6:0:9:0");
    ovra::test::write_gpt(root / "dev/sdz", 65536,
                          ovra::test::make_gpt(65536, {{1, 2048, 4095}, {2, 4096, 8191, "EFI  a\\x20b"}}));
    EXPECT_EQ(found({"PARTLABEL=EFI  a\\x20b"}), "c1t9d0s1");
    EXPECT_THAT(found({"PARTLABEL=EFI  a b"}), HasSubstr("no disk is named"));
}

TEST_F(disk_tags, on_disks_that_cannot_be_read_are_not_missing)
{
    const auto nobody = as_user_without_rights();
    if (!nobody)
        GTEST_SKIP() << "who runs this has no user without rights";
    fs::permissions(root / "dev/sdb", fs::perms::none);
    const outcome result = run({"find", "LABEL=nothing"}, *nobody);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(whole(result.err),
                HasSubstr("no disk that can be read has \"LABEL=nothing\"; cannot read /dev/sdb"));
}

TEST_F(disk_tags, and_numbers_name_a_partition_of_a_disk)
{
    EXPECT_EQ(found({"sda", "--part", "1"}), "c5t0d0s0");
    EXPECT_EQ(found({"--part=9", "/dev/sda"}), "c5t0d0s8");
    EXPECT_EQ(found({"c5t3d0", "--part", "5"}), "c5t3d0p5");
    EXPECT_EQ(found({"nvme0n1", "--part", "0x3"}), "c2t0d0s2");
    EXPECT_EQ(run({"find", "sda", "--part", "1"}).err,
              "sda --part 1 is c5t0d0s0, /dev/sda1, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01.\n");
    EXPECT_THAT(found({"sda", "--part", "7"}), HasSubstr("ovra: the disk c5t0d0 (sda) has no partition 7\n"));
    for (const char *name : {"sda1", "c5t0d0s0", "sd", "UUID=1A2B-3C4D", "none"})
        EXPECT_EQ(found({name, "--part", "1"}),
                  "ovra: --part needs a whole disk, and \"" + std::string(name) +
                      "\" names none\n  'ovra disks' shows the disks with their names.\n");
    for (const char *number : {"0", "x", "-1", "01", "", "99999999999"})
        EXPECT_EQ(run({"find", "sda", "--part", number}).status, 2) << number;
    EXPECT_EQ(run({"create", "--desc", "x", "--devpath", "/Pci(1,2)", "--part", "1"}).status, 2);
}

TEST_F(disk_tags, show_one_disk_alone)
{
    const auto shown = [this](const std::string &name) {
        const json document = parsed({"disks", name});
        std::string drives;
        for (const json &disk : document["disks"])
            drives += disk["kernel_name"].get<std::string>() + ' ';
        return drives;
    };
    for (const char *name : {"sda", "c5t0d0", "sda9", "c5t0d0s8", "/dev/sda", "LABEL=EFI SYSTEM"})
        EXPECT_EQ(shown(name), "sda ") << name;
    EXPECT_EQ(parsed({"disks", "sda"})["disks"][0]["volumes"].size(), 3u);
    EXPECT_EQ(shown("vda"), "vda ") << "of which nothing can be read";
    EXPECT_EQ(failure({"disks", "sdq"}),
              "ovra: no disk is named \"sdq\"\n  'ovra disks' shows the disks with their names.\n");
}

TEST_F(disk_tags, become_the_device_of_an_option)
{
    output({"create", "--desc", "x", "--devpath", "HD(9,GPT,5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c99,0x800,0x9)",
            "--file", "\\old.efi", "--number", "0042"});
    const auto path = [this] { return parsed({"show", "Boot0042"})["instances"][0]; };
    const outcome set = run({"set", "Boot0042", "--disk", "LABEL=EFI SYSTEM"});
    EXPECT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(set.err,
              "LABEL=EFI SYSTEM is c5t0d0s0, /dev/sda1, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01.\n");
    EXPECT_EQ(path()["file_path"], "\\old.efi");
    EXPECT_EQ(parsed({"show", "Boot0042"})["disks"], json({"c5t0d0s0"}));
    const json planned = parsed({"set", "Boot0042", "--disk", "sdb", "--part", "1", "--file", "\\new.efi"});
    EXPECT_EQ(planned["disk"], "c5t3d0p1");
    EXPECT_EQ(planned["kernel_name"], "sdb1");
    EXPECT_EQ(path()["file_path"], "\\new.efi");
    EXPECT_THAT(output({"show", "Boot0042"}), HasSubstr("Disk           c5t3d0p1 (sdb1)\n"));
    run({"set", "Boot0042", "--disk", "c5t0d0s0", "--full"});
    EXPECT_THAT(path()["device_path"].get<std::string>(), HasSubstr("/Pci("));
    EXPECT_EQ(run({"set", "Boot0042", "--disk", "sda1", "--devpath", "/Pci(1,2)"}).status, 2);
    EXPECT_EQ(run({"set", "Boot0042", "--full"}).status, 2);
}

// A file that is named with the disk replaces the old one.
TEST_F(disk_tags, of_a_file_become_device_and_file)
{
    output({"create", "--desc", "x", "--devpath", "/Pci(1,2)", "--file", "\\old.efi", "--number", "0042"});
    put_text("etc/mtab", "/dev/sda1 /boot/efi vfat rw 0 0");
    put_text("boot/efi/EFI/b.efi", "");
    const auto file = [this] { return parsed({"show", "Boot0042"})["instances"][0]["file_path"]; };
    run({"set", "Boot0042", "--disk", "/boot/efi"});
    EXPECT_EQ(file(), "\\old.efi");
    run({"set", "Boot0042", "--disk", "/boot/efi/EFI/b.efi"});
    EXPECT_EQ(file(), "\\EFI\\b.efi");
}

} // namespace tool_test
