// SPDX-License-Identifier: MIT
// Disks on controllers and transports that the captured machines do not have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ovra/ovra.h>

#include "tests/devices/library.h"
#include "tests/devices/sample.h"
#include "tests/support/gpt.h"

namespace {

using namespace devices_test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned sata_class = 0x010601;
constexpr unsigned ide_class = 0x010180;
constexpr unsigned raid_class = 0x010400;
constexpr unsigned sas_class = 0x010700;
constexpr unsigned usb_class = 0x0c0330;

TEST(disk_places, sata_behind_a_port_multiplier)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:1f.2", sata_class);
    // One multiplier on the controller's third port, whose links are SCSI channels; one disk without.
    machine.disk("sda", machine.ata(function, 3, 3, "2:0:0:0", 5));
    machine.disk("sdb", machine.ata(function, 3, 3, "2:4:0:0", 5));
    machine.disk("sdc", machine.ata(function, 7, 1, "0:0:0:0"));
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@1f,2/disk@0,0 sdc 512 65536",
                                      "c0t258d0 /pci@0,0/pci8086,1234@1f,2/disk@102,0 sda 512 65536",
                                      "c0t386d0 /pci@0,0/pci8086,1234@1f,2/disk@182,0 sdb 512 65536"));
}

TEST(disk_places, ide_masters_and_slaves)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:01.1", ide_class);
    machine.disk("sda", machine.ata(function, 1, 1, "0:0:0:0"));
    machine.disk("sdb", machine.ata(function, 1, 1, "0:0:1:0"));
    machine.disk("sdc", machine.ata(function, 2, 2, "1:0:0:0"));
    machine.disk("sdd", machine.ata(function, 2, 2, "1:0:1:0"));
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@1,1/ide@0/hdrv@0,0 sda 512 65536",
                                      "c0t1d0 /pci@0,0/pci8086,1234@1,1/ide@0/hdrv@1,0 sdb 512 65536",
                                      "c0t2d0 /pci@0,0/pci8086,1234@1,1/ide@1/hdrv@0,0 sdc 512 65536",
                                      "c0t3d0 /pci@0,0/pci8086,1234@1,1/ide@1/hdrv@1,0 sdd 512 65536"));
}

// A third disk of a channel would have the name of the next channel's first.
TEST(disk_places, ide_channel_with_too_many_disks)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:01.1", ide_class);
    machine.disk("sda", machine.ata(function, 1, 1, "0:0:2:0"));
    machine.disk("sdb", machine.ata(function, 2, 2, "1:0:0:0"));
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_THAT(found, ElementsAre("c0t2d0 /pci@0,0/pci8086,1234@1,1/ide@1/hdrv@0,0 sdb 512 65536",
                                   "c0t65536d0 /pci@0,0/pci8086,1234@1,1/blkdev@0,0 sda 512 65536"));
    EXPECT_THAT(messages, testing::HasSubstr("drive 2 of a channel has no path"));
}

TEST(disk_places, port_multiplier_with_too_many_ports)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:1f.2", sata_class);
    machine.disk("sda", machine.ata(function, 1, 1, "0:15:0:0", 17));
    machine.disk("sdb", machine.ata(function, 1, 1, "0:16:0:0", 17));
    // Except the disk on the controller itself.
    machine.disk("sdc", machine.ata(function, 2, 2, "1:0:0:0"));
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_THAT(found, ElementsAre("c0t1d0 /pci@0,0/pci8086,1234@1f,2/disk@1,0 sdc 512 65536",
                                   "c0t480d0 /pci@0,0/pci8086,1234@1f,2/disk@1e0,0 sda 512 65536",
                                   "c0t65536d0 /pci@0,0/pci8086,1234@1f,2/blkdev@0,0 sdb 512 65536"));
    EXPECT_THAT(messages, testing::HasSubstr("the disk of port 16 of a port multiplier has no path"));
}

// A path has four bits for the multiplier's port, one of them always set.
TEST(disk_places, port_multiplier_ports_that_a_path_cannot_tell_apart)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:1f.2", sata_class);
    machine.disk("sda", machine.ata(function, 1, 1, "0:1:0:0", 15));
    machine.disk("sdb", machine.ata(function, 1, 1, "0:9:0:0", 15));
    EXPECT_THAT(drives(), ElementsAre("c0t288d0 /pci@0,0/pci8086,1234@1f,2/disk@120,0 sda 512 65536",
                                      "c0t65536d0 /pci@0,0/pci8086,1234@1f,2/blkdev@0,0 sdb 512 65536"));
}

// A path tells them apart, a name does not.
TEST(disk_places, disks_of_two_transports_never_share_a_name)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:1f.2", raid_class);
    machine.disk("sda", machine.ata(function, 6, 6, "5:0:0:0"));
    machine.disk("sdb", function + "/host9/target9:0:5/9:0:5:0");
    machine.disk("sdc", function + "/host9/target9:0:5/9:0:5:1");
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_THAT(found, ElementsAre("c0t5d0 /pci@0,0/pci8086,1234@1f,2/disk@5,0 sda 512 65536",
                                   "c0t5d1 /pci@0,0/pci8086,1234@1f,2/sd@5,1 sdc 512 65536",
                                   "c0t65536d0 /pci@0,0/pci8086,1234@1f,2/blkdev@0,0 sdb 512 65536"));
    EXPECT_THAT(messages, testing::HasSubstr("hwplat: sdb: another disk has the same target"));
    // A counted disk does not take the name of one with a target either.
    const auto both = machine.function("pci0000:00/0000:00:02.0", raid_class);
    machine.disk("vda", both + "/virtio0");
    machine.disk("sdd", both + "/host10/target10:0:0/10:0:0:0");
    EXPECT_THAT(drives(),
                testing::IsSupersetOf({"c0t0d0 /pci@0,0/pci8086,1234@2/sd@0,0 sdd 512 65536",
                                       "c0t65536d0 /pci@0,0/pci8086,1234@2/blkdev@0,0 vda 512 65536"}));
}

// A path has no channel: the second disk of a target keeps a name, but has no path of its own.
TEST(disk_places, raid_channels_with_equal_targets)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:03.0", raid_class);
    machine.disk("sda", function + "/host0/target0:0:3/0:0:3:0");
    machine.disk("sdb", function + "/host0/target0:1:3/0:1:3:0");
    machine.disk("sdc", function + "/host0/target0:1:4/0:1:4:1");
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_THAT(found, ElementsAre("c0t3d0 /pci@0,0/pci8086,1234@3/sd@3,0 sda 512 65536",
                                   "c0t4d1 /pci@0,0/pci8086,1234@3/sd@4,1 sdc 512 65536",
                                   "c0t65536d0 /pci@0,0/pci8086,1234@3/blkdev@0,0 sdb 512 65536"));
    EXPECT_THAT(messages, testing::HasSubstr("hwplat: sdb: another disk has the same target"));
}

// A disk whose number has no place in a path comes first in the kernel's order. It must not take another's
// name.
TEST(disk_places, disks_without_a_path_get_names_of_their_own)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:03.0", raid_class);
    machine.disk("sda", function + "/host0/target0:0:70000/0:0:70000:0");
    machine.disk("sdb", function + "/host0/target0:0:0/0:0:0:0");
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_THAT(found, ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@3/sd@0,0 sdb 512 65536",
                                   "c0t65536d0 /pci@0,0/pci8086,1234@3/blkdev@0,0 sda 512 65536"));
    EXPECT_THAT(messages, testing::HasSubstr("0:0:70000:0 has no place in a path"));
}

TEST(disk_places, sas_controller)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:04.0", sas_class);
    machine.disk("sda", function + "/host2/port-2:0/end_device-2:0/target2:0:11/2:0:11:65535");
    EXPECT_THAT(drives(), ElementsAre("c0t11d65535 /pci@0,0/pci8086,1234@4/sd@b,ffff sda 512 65536"));
}

TEST(disk_places, usb_reader_with_several_units)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:05.0", usb_class);
    for (const char *unit : {"0", "1", "2"}) {
        const std::string number = std::string("8:0:0:") + unit;
        machine.disk(std::string("sd") + static_cast<char>('a' + unit[0] - '0'),
                     function + "/usb2/2-1/2-1:1.0/host8/target8:0:0/" + number);
    }
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@5/blkdev@0,0 sda 512 65536",
                                      "c0t1d0 /pci@0,0/pci8086,1234@5/blkdev@1,0 sdb 512 65536",
                                      "c0t2d0 /pci@0,0/pci8086,1234@5/blkdev@2,0 sdc 512 65536"));
}

// The kernel names disks as they come, sdz before sdaa. Those of one controller are counted in that order.
TEST(disk_places, disks_without_targets_are_in_the_order_of_the_kernel)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:05.0", usb_class);
    for (const char *name : {"sdaa", "sdz"})
        machine.disk(name, function + "/usb2/" + name + "/host8/target8:0:0/8:0:0:0");
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@5/blkdev@0,0 sdz 512 65536",
                                      "c0t1d0 /pci@0,0/pci8086,1234@5/blkdev@1,0 sdaa 512 65536"));
}

TEST(disk_places, what_is_no_disk_is_passed_over)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:1f.2", sata_class);
    const std::string optical = machine.ata(function, 1, 1, "0:0:0:0");
    machine.disk("sda", optical);
    machine.text(optical + "/type", "5");
    machine.disk("sr0", machine.ata(function, 2, 2, "1:0:0:0"));
    const std::string hidden = machine.ata(function, 3, 3, "2:0:0:0");
    machine.disk("sdb", hidden);
    machine.text(hidden + "/block/sdb/hidden", "1");
    machine.disk("loop0", "sys/devices/virtual", 0); // nothing is on it
    machine.disk("nbd0", "sys/devices/virtual", 0);
    machine.disk("dm-0", "sys/devices/virtual");
    machine.text("sys/devices/virtual/block/dm-0/dm/suspended", "1");
    machine.disk("md0", "sys/devices/virtual", 0); // a container
    machine.disk("ram0", "sys/devices/virtual");
    machine.disk("zram0", "sys/devices/virtual");
    machine.disk("mtdblock0", "sys/devices/platform/flash/mtd/mtd0");
    machine.disk("fd0", "sys/devices/platform/floppy.0");
    for (const char *part : {"mmcblk0boot0", "mmcblk0boot1", "mmcblk0rpmb"})
        machine.disk(part, "sys/devices/platform/fe340000.mmc/mmc_host/mmc0/mmc0:0001/block/mmcblk0");
    EXPECT_THAT(drives(), IsEmpty());
    EXPECT_THAT(tree_paths(), ElementsAre("/", "/pci@0,0", "/pci@0,0/pci8086,1234@1f,2"));
}

// The name of a disk does not depend on the other disks.
TEST(disk_places, disks_keep_their_names_when_another_of_the_function_goes)
{
    const sample machine;
    const auto raid = machine.function("pci0000:00/0000:00:03.0", raid_class);
    machine.disk("sda", raid + "/host0/target0:0:1/0:0:1:0");
    machine.disk("sdb", raid + "/host0/target0:0:70000/0:0:70000:0");
    const std::vector<std::string> before = drives();
    EXPECT_THAT(before, ElementsAre("c0t1d0 /pci@0,0/pci8086,1234@3/sd@1,0 sda 512 65536",
                                    "c0t65536d0 /pci@0,0/pci8086,1234@3/blkdev@0,0 sdb 512 65536"));
    fs::remove(machine.root() / "sys/block/sda");
    EXPECT_THAT(drives(), ElementsAre(before[1]));
}

TEST(disk_places, controllers_keep_their_numbers_when_their_only_disk_goes)
{
    for (const unsigned class_code : {0x0c0010U, 0x0c0330U, 0x0c0400U, 0x080501U, 0x010802U}) {
        const sample machine;
        // Numbered in the order of the tree, even if a controller of another class carries a disk.
        const auto counted = machine.function("pci0000:00/0000:00:07.0", class_code);
        machine.disk("sda", machine.function("pci0000:00/0000:00:06.0", 0xff0000) + "/host0/target/0:0:0:0");
        machine.disk("sdb", counted + "/host1/target1:0:0/1:0:0:0");
        machine.disk("sdc",
                     machine.function("pci0000:00/0000:00:08.0", raid_class) + "/host2/target/2:0:0:0");
        const std::vector<std::string> before = drives();
        ASSERT_EQ(before.size(), 3U);
        EXPECT_TRUE(before[0].starts_with("c0t0d0 ")) << before[0];
        EXPECT_THAT(before[0], testing::HasSubstr(" sdb ")) << class_code;
        fs::remove(machine.root() / "sys/block/sdb");
        EXPECT_THAT(drives(), ElementsAre(before[1], before[2])) << class_code;
    }
}

// Functions of another class are controllers only if they carry a disk. They come after all others, in the
// order of the tree, not of their disks.
TEST(disk_places, functions_that_only_a_disk_makes_controllers)
{
    const sample machine;
    const auto first = machine.function("pci0000:00/0000:00:02.0", 0xff0000);
    const auto second = machine.function("pci0000:00/0000:00:03.0", 0x120000);
    machine.function("pci0000:00/0000:00:04.0", 0x088000);
    const auto storage = machine.function("pci0000:00/0000:00:05.0", raid_class);
    machine.disk("sda", second + "/host1/target1:0:0/1:0:0:0");
    machine.disk("sdb", second + "/host1/target1:0:1/1:0:1:0");
    machine.disk("sdc", first + "/host2/target2:0:0/2:0:0:0");
    machine.disk("sdd", storage + "/host3/target3:0:4/3:0:4:0");
    const std::vector<std::string> before = drives();
    EXPECT_THAT(before, ElementsAre("c0t4d0 /pci@0,0/pci8086,1234@5/sd@4,0 sdd 512 65536",
                                    "c1t0d0 /pci@0,0/pci8086,1234@2/blkdev@0,0 sdc 512 65536",
                                    "c2t0d0 /pci@0,0/pci8086,1234@3/blkdev@0,0 sda 512 65536",
                                    "c2t1d0 /pci@0,0/pci8086,1234@3/blkdev@1,0 sdb 512 65536"));
    fs::remove(machine.root() / "sys/block/sdb");
    EXPECT_THAT(drives(), ElementsAre(before[0], before[1], before[2]));
    fs::remove(machine.root() / "sys/block/sdc");
    EXPECT_THAT(drives(), ElementsAre(before[0], "c1t0d0 /pci@0,0/pci8086,1234@3/blkdev@0,0 sda 512 65536"));
}

// A function may carry buses of a domain of its own.
TEST(disk_places, host_bridge_below_a_function)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:0e.0", raid_class, 0x8086, 0x9a0b);
    const std::string below = function.substr(std::string("sys/devices/").size()) + "/pci10000:e0";
    machine.function(below + "/10000:e0:06.0", 0x060400);
    machine.disk("nvme0n1",
                 machine.function(below + "/10000:e0:06.0/10000:e1:00.0", 0x010802) + "/nvme/nvme0");
    EXPECT_THAT(drives(),
                ElementsAre("c1t0d0 /pci@0,0/pci8086,9a0b@e/pci8086,1234@6/pci8086,1234@0/blkdev@0,0 nvme0n1 "
                            "512 65536"));
    EXPECT_THAT(tree_paths(),
                ElementsAre("/", "/pci@0,0", "/pci@0,0/pci8086,9a0b@e",
                            "/pci@0,0/pci8086,9a0b@e/pci8086,1234@6",
                            "/pci@0,0/pci8086,9a0b@e/pci8086,1234@6/pci8086,1234@0",
                            "/pci@0,0/pci8086,9a0b@e/pci8086,1234@6/pci8086,1234@0/blkdev@0,0"));
}

// Decimal, unlike all other numbers of the tree, as the core reads it so.
TEST(disk_places, ide_channels_are_decimal)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:01.1", ide_class);
    machine.disk("sda", machine.ata(function, 11, 11, "0:0:1:0"));
    ovra::test::write_gpt(machine.image("sda"), 65536, ovra::test::make_gpt(65536, {{1, 2048, 4095}}));
    EXPECT_THAT(drives(), ElementsAre("c0t21d0 /pci@0,0/pci8086,1234@1,1/ide@10/hdrv@1,0 sda 512 65536"));
    EXPECT_THAT(library().packed("c0t21d0s0", 1),
                testing::HasSubstr(std::string("\x03\x01\x08\0\x0a\x01\0\0", 8)));
}

// In the order of their paths: by bridge, then by device, with the devices below a bridge in its place.
TEST(disk_places, controllers_are_numbered_in_the_order_of_the_tree)
{
    const sample machine;
    for (const char *place : {"pci0000:80/0000:80:00.0", "pci0000:00/0000:00:10.0", "pci0000:00/0000:00:02.1",
                              "pci0001:00/0001:00:01.0"})
        machine.disk(std::string("sd") + static_cast<char>('a' + drives().size()),
                     machine.function(place, raid_class) + "/host0/target0:0:0/0:0:0:0");
    machine.function("pci0000:00/0000:00:03.0", 0x060400);
    machine.disk("sde", machine.function("pci0000:00/0000:00:03.0/0000:05:00.0", raid_class) +
                            "/host0/target0:0:0/0:0:0:0");
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@2,1/sd@0,0 sdc 512 65536",
                                      "c1t0d0 /pci@0,0/pci8086,1234@3/pci8086,1234@0/sd@0,0 sde 512 65536",
                                      "c2t0d0 /pci@0,0/pci8086,1234@10/sd@0,0 sdb 512 65536",
                                      "c3t0d0 /pci@1,0/pci8086,1234@0/sd@0,0 sda 512 65536",
                                      "c4t0d0 /pci@2,0/pci8086,1234@1/sd@0,0 sdd 512 65536"));
}

} // namespace
