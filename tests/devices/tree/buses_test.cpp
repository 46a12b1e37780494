// SPDX-License-Identifier: MIT
// Disks that no PCI function carries, and namespaces of NVMe subsystems, which only seem to be such.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;
using testing::ElementsAre;

// What comes or goes on one bus, or on PCI, moves no name on the others.
TEST(disk_buses, come_after_all_functions)
{
    const sample machine;
    const auto other = machine.function("pci0000:00/0000:00:02.0", 0xff0000);
    const auto storage = machine.function("pci0000:00/0000:00:05.0", 0x010400);
    machine.disk("vda", other + "/virtio0");
    machine.disk("mmcblk1", "sys/devices/platform/fe320000.mmc/mmc_host/mmc1/mmc1:0001");
    machine.disk("xvda", "sys/devices/vbd-51712");
    const std::string mmc = "c3t1d0 /mmc@0,0/blkdev@1,0 mmcblk1 512 65536";
    const std::string xen = "c2t0d0 /xen@0,0/blkdev@0,0 xvda 512 65536";
    EXPECT_THAT(drives(), ElementsAre("c1t0d0 /pci@0,0/pci8086,1234@2/blkdev@0,0 vda 512 65536", xen, mmc));
    machine.disk("sda", storage + "/host3/target3:0:4/3:0:4:0");
    machine.disk("loop7", "sys/devices/virtual");
    machine.disk("sdb", "sys/devices/platform/host9/session1/target9:0:0/9:0:0:1");
    machine.disk("mmcblk0", "sys/devices/platform/fe340000.mmc/mmc_host/mmc0/mmc0:0001");
    EXPECT_THAT(drives(), testing::IsSupersetOf(
                              {mmc, xen, std::string("c5t7d0 /loop@0,0/blkdev@7,0 loop7 512 65536")}));
    EXPECT_EQ(tree_paths().back(), "/loop@0,0/blkdev@7,0");
}

// Two controllers of a subsystem with one namespace, whose paths are hidden.
class nvme_subsystem : public testing::Test {
protected:
    nvme_subsystem()
    {
        for (const char number : {'0', '1'}) {
            const std::string function =
                machine.function(std::string("pci0000:00/0000:00:04.") + number, 0x010802);
            const std::string controller = function + "/nvme/nvme" + number;
            machine.text(controller + "/nvme3c" + number + "n1/size", "65536");
            machine.text(controller + "/state", "live");
            controllers.push_back(controller);
            fs::create_directories(machine.root() / subsystem);
            fs::create_directory_symlink("../../.." + controller.substr(11),
                                         machine.root() / subsystem / ("nvme" + std::string(1, number)));
        }
        machine.text(subsystem + "/nvme3n1/size", "65536");
        fs::create_directories(machine.root() / "sys/block");
        fs::create_directory_symlink("../" + subsystem.substr(4) + "/nvme3n1",
                                     machine.root() / "sys/block/nvme3n1");
    }

    const std::string subsystem = "sys/devices/virtual/nvme-subsystem/nvme-subsys3";
    const std::string on_first = "c0t0d0 /pci@0,0/pci8086,1234@4/blkdev@0,0 nvme3n1 512 65536";
    const std::string on_second = "c1t0d0 /pci@0,0/pci8086,1234@4,1/blkdev@0,0 nvme3n1 512 65536";
    sample machine;
    std::vector<std::string> controllers;
};

TEST_F(nvme_subsystem, namespace_is_on_its_first_live_path)
{
    EXPECT_THAT(drives(), ElementsAre(on_first));
    machine.text(controllers[0] + "/state", "dead");
    EXPECT_THAT(drives(), ElementsAre(on_second));
    machine.text(controllers[1] + "/state", "connecting");
    EXPECT_THAT(drives(), ElementsAre(on_first)); // a drive all the same
    for (const std::string &controller : controllers)
        fs::remove(machine.root() / controller / "state"); // older kernels
    EXPECT_THAT(drives(), ElementsAre(on_first));
    machine.text(controllers[0] + "/nvme3c0n1/ana_state", "persistent-loss");
    EXPECT_THAT(drives(), ElementsAre(on_second));
    machine.text(controllers[1] + "/nvme3c1n1/ana_state", "non-optimized");
    EXPECT_THAT(drives(), ElementsAre(on_second));
}

TEST_F(nvme_subsystem, controller_without_the_namespace_is_no_path)
{
    fs::remove_all(machine.root() / controllers[0] / "nvme3c0n1");
    EXPECT_THAT(drives(), ElementsAre(on_second));
    fs::remove_all(machine.root() / controllers[1] / "nvme3c1n1");
    EXPECT_THAT(drives(), ElementsAre(on_first)); // the best that is known
}

TEST_F(nvme_subsystem, namespace_without_a_function_is_on_a_bus)
{
    for (const char *name : {"nvme0", "nvme1"})
        fs::remove(machine.root() / subsystem / name);
    EXPECT_THAT(drives(), ElementsAre("c2t0d0 /nvme@0,0/blkdev@0,0 nvme3n1 512 65536"));
}

// A path and a name have room for numbers below 65536.
TEST(disk_buses, numbers_of_linux_names)
{
    const sample machine;
    for (const char *name :
         {"md0", "md65535", "md65536", "md99999999999999999999", "md_home", "md_d0", "mdx"})
        machine.disk(name, "sys/devices/virtual");
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /md@0,0/blkdev@0,0 md0 512 65536",
                                      "c0t65535d0 /md@0,0/blkdev@ffff,0 md65535 512 65536",
                                      "c0t65536d0 /md@0,0/blkdev@10000,0 md_d0 512 65536",
                                      "c0t65537d0 /md@0,0/blkdev@10001,0 mdx 512 65536",
                                      "c0t65538d0 /md@0,0/blkdev@10002,0 md65536 512 65536",
                                      "c0t65539d0 /md@0,0/blkdev@10003,0 md_home 512 65536",
                                      "c0t65540d0 /md@0,0/blkdev@10004,0 md99999999999999999999 512 65536"));
}

} // namespace
