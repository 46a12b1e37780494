// Where disks hang: the controllers and transports that the captured machines do not have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned sata_class = 0x010601;
constexpr unsigned ide_class = 0x010180;
constexpr unsigned raid_class = 0x010400;
constexpr unsigned sas_class = 0x010700;
constexpr unsigned usb_class = 0x0c0330;

TEST(Places, sata_behind_a_port_multiplier)
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

TEST(Places, ide_masters_and_slaves)
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

// A third disk of a channel would have the name of the next channel's master.
TEST(Places, ide_channel_with_too_many_disks)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:01.1", ide_class);
    machine.disk("sda", machine.ata(function, 1, 1, "0:0:2:0"));
    machine.disk("sdb", machine.ata(function, 2, 2, "1:0:0:0"));
    EXPECT_THAT(drives(), ElementsAre("c0t2d0 /pci@0,0/pci8086,1234@1,1/ide@1/hdrv@0,0 sdb 512 65536",
                                      "c0t65536d0 /pci@0,0/pci8086,1234@1,1/blkdev@0,0 sda 512 65536"));
}

// A path has no channel: the second disk of a target keeps a name, but has no path of its own.
TEST(Places, raid_channels_with_equal_targets)
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

// One whose number has no place in a path comes first in the kernel's order: it must not take another's name.
TEST(Places, disks_without_a_path_get_names_of_their_own)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:03.0", raid_class);
    machine.disk("sda", function + "/host0/target0:0:70000/0:0:70000:0");
    machine.disk("sdb", function + "/host0/target0:0:0/0:0:0:0");
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@3/sd@0,0 sdb 512 65536",
                                      "c0t65536d0 /pci@0,0/pci8086,1234@3/blkdev@0,0 sda 512 65536"));
}

TEST(Places, sas_controller)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:04.0", sas_class);
    machine.disk("sda", function + "/host2/port-2:0/end_device-2:0/target2:0:11/2:0:11:65535");
    EXPECT_THAT(drives(), ElementsAre("c0t11d65535 /pci@0,0/pci8086,1234@4/sd@b,ffff sda 512 65536"));
}

TEST(Places, usb_reader_with_several_units)
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

// The kernel numbers its disks as they come, sdz before sdaa; so are those of one controller.
TEST(Places, disks_without_targets_are_in_the_order_of_the_kernel)
{
    const sample machine;
    const auto function = machine.function("pci0000:00/0000:00:05.0", usb_class);
    for (const char *name : {"sdaa", "sdz"})
        machine.disk(name, function + "/usb2/" + name + "/host8/target8:0:0/8:0:0:0");
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@5/blkdev@0,0 sdz 512 65536",
                                      "c0t1d0 /pci@0,0/pci8086,1234@5/blkdev@1,0 sdaa 512 65536"));
}

TEST(Places, what_is_no_disk_is_passed_over)
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
    machine.disk("loop0", "sys/devices/virtual");
    machine.disk("fd0", "sys/devices/platform/floppy.0");
    EXPECT_THAT(drives(), IsEmpty());
    EXPECT_THAT(tree_paths(), ElementsAre("/", "/pci@0,0", "/pci@0,0/pci8086,1234@1f,2"));
}

// In the order of their paths: bridges, then devices, with what is behind a bridge at its place.
TEST(Places, controllers_are_numbered_in_the_order_of_the_tree)
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
