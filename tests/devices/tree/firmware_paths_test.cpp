// SPDX-License-Identifier: MIT
// The paths that the firmware of the captured machines gives its disks, against those of the tree. One field
// differs by design: a SATA disk without a port multiplier has 0x8000 here, 0xffff there.
#include <cstring>

#include <gtest/gtest.h>

#include <ovra/ovra.h>

#include "tests/devices/library.h"
#include "tests/devices/sample.h"

namespace {

using namespace devices_test;

using packed_node = std::string;

std::vector<packed_node> split(std::string_view packed)
{
    std::vector<packed_node> nodes;
    while (packed.size() >= 4) {
        const size_t size =
            static_cast<unsigned char>(packed[2]) + 256U * static_cast<unsigned char>(packed[3]);
        if (size < 4 || size > packed.size())
            break;
        nodes.emplace_back(packed.substr(0, size));
        packed.remove_prefix(size);
    }
    return nodes;
}

class firmware_paths : public testing::Test {
protected:
    // The path of an option that the firmware made.
    [[nodiscard]] std::vector<packed_node> firmware_path(const char *option) const
    {
        return split(ovra.option_path(option));
    }

    // The path of a slice or partition, from the tree, without the hard-drive node and END.
    [[nodiscard]] std::vector<packed_node> tree_path(const char *disk) const
    {
        auto nodes = split(ovra.packed(disk, 1));
        nodes.resize(nodes.size() - 2);
        return nodes;
    }

    // The node of the tree that the firmware's path leads to, or "(none)".
    [[nodiscard]] std::string device(const std::vector<packed_node> &path) const
    {
        std::string packed;
        for (const packed_node &each : path)
            packed += each;
        const outcome found = ovra.decode(packed);
        return found.error != 0 ? "(none)" : found.text.substr(0, found.text.find('\n'));
    }

    sample machine{"q35"};
    library ovra;
};

// The same nodes, byte for byte.
void expect_same_place(const std::vector<packed_node> &firmware, const std::vector<packed_node> &tree)
{
    ASSERT_EQ(firmware.size(), tree.size() + 1) << "the firmware's ends with END";
    for (size_t i = 0; i < tree.size(); ++i)
        EXPECT_EQ(firmware[i], tree[i]) << i;
}

TEST_F(firmware_paths, scsi_disk_behind_a_root_port)
{
    expect_same_place(firmware_path("Boot0001"), tree_path("c0t0d0s0"));
}

TEST_F(firmware_paths, sata_disks)
{
    for (const auto &[option, disk] : {std::pair("Boot0005", "c5t0d0s0"), {"Boot0006", "c5t3d0p1"}}) {
        std::vector<packed_node> firmware = firmware_path(option);
        ASSERT_GE(firmware.size(), 2U);
        packed_node &sata = firmware[firmware.size() - 2];
        ASSERT_EQ(sata.size(), 10U);
        EXPECT_EQ(sata.substr(6, 2), "\xff\xff");
        sata.replace(6, 2, packed_node("\x00\x80", 2));
        expect_same_place(firmware, tree_path(disk));
    }
}

TEST_F(firmware_paths, its_scsi_path_leads_to_the_disk)
{
    EXPECT_EQ(device(firmware_path("Boot0001")), "/pci@0,0/pci1b36,c@2/pci1af4,1048@0/sd@0,0");
}

TEST_F(firmware_paths, its_sata_path_leads_to_the_disk_but_for_the_port_multiplier)
{
    for (const auto &[option, path] : {std::pair("Boot0005", "/pci@0,0/pci8086,2922@1f,2/disk@0,0"),
                                       {"Boot0006", "/pci@0,0/pci8086,2922@1f,2/disk@3,0"}}) {
        std::vector<packed_node> nodes = firmware_path(option);
        EXPECT_EQ(device(nodes), "(none)");
        nodes[nodes.size() - 2].replace(6, 2, packed_node("\x00\x80", 2));
        EXPECT_EQ(device(nodes), path);
    }
}

// Disks of transports without a node in the tree: the firmware names the same controller.
TEST_F(firmware_paths, controllers_of_other_disks)
{
    for (const auto &[option, below, path] :
         {std::tuple("Boot0002", size_t{1}, "/pci@0,0/pci1b36,10@4"), // NVMe
          std::tuple("Boot0003", size_t{1}, "/pci@0,0/pci1b36,d@5"),  // USB
          std::tuple("Boot0004", size_t{0}, "/pci@0,0/pci1af4,1001@6")}) {
        std::vector<packed_node> nodes = firmware_path(option);
        ASSERT_EQ(nodes.size(), 3 + below) << option;
        nodes.erase(nodes.begin() + 2, nodes.end() - 1);
        EXPECT_EQ(device(nodes), path);
    }
}

TEST(firmware_paths_pc, controller_of_its_disk)
{
    const sample machine("pc");
    const library ovra;
    const outcome found = ovra.decode(ovra.option_path("Boot0001"));
    EXPECT_EQ(found.error, 0);
    EXPECT_EQ(found.text, "/pci@0,0/pci1af4,1001@5\n");
}

} // namespace
