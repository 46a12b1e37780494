// SPDX-License-Identifier: MIT
// The paths that the firmware of the captured machines gives its disks, against those of the tree. One field
// differs by design: a SATA disk without a port multiplier has 0x8000 here, 0xffff there.
#include <cstring>

#include <gtest/gtest.h>

#include <ovra/ovra.h>

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
    firmware_paths()
    {
        if (ovra_init(&handle) != 0)
            throw std::runtime_error("ovra_init");
    }
    ~firmware_paths() override { ovra_fini(handle); }

    // The path of an option that the firmware made.
    std::vector<packed_node> firmware_path(std::string option)
    {
        ovra_epath_t packed = nullptr;
        int size = 0;
        EXPECT_EQ(ovra_bootopt_get(handle, option.data(), &packed, &size, nullptr, nullptr, nullptr, nullptr),
                  0);
        return split({reinterpret_cast<const char *>(packed), static_cast<size_t>(size)});
    }

    // The path of a slice or partition, from the tree, without the hard-drive node and END.
    std::vector<packed_node> tree_path(std::string disk)
    {
        ovra_path_t instance = {disk.data(), nullptr};
        ovra_path_t *paths[] = {&instance, nullptr};
        ovra_epath_t packed = nullptr;
        int size = 0;
        EXPECT_EQ(ovra_epath_encode(handle, paths, 1, &packed, &size), 0);
        auto nodes = split({reinterpret_cast<const char *>(packed), static_cast<size_t>(size)});
        nodes.resize(nodes.size() - 2);
        return nodes;
    }

    // The node of the tree that the firmware's path leads to, or "(none)".
    std::string device(const std::vector<packed_node> &path)
    {
        std::string packed;
        for (const packed_node &each : path)
            packed += each;
        ovra_path_t **found = nullptr;
        if (ovra_epath_decode_to_devices(handle, reinterpret_cast<ovra_epath_t>(packed.data()),
                                         static_cast<int>(packed.size()), &found) != 0)
            return "(none)";
        return found[0]->device_path;
    }

    sample machine{"q35"};
    ovra_hdl_t handle = nullptr;
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
    ovra_hdl_t handle = nullptr;
    ASSERT_EQ(ovra_init(&handle), 0);
    std::string option = "Boot0001";
    ovra_epath_t packed = nullptr;
    int size = 0;
    ASSERT_EQ(ovra_bootopt_get(handle, option.data(), &packed, &size, nullptr, nullptr, nullptr, nullptr), 0);
    ovra_path_t **found = nullptr;
    ASSERT_EQ(ovra_epath_decode_to_devices(handle, packed, size, &found), 0);
    EXPECT_STREQ(found[0]->device_path, "/pci@0,0/pci1af4,1001@5");
    ovra_fini(handle);
}

} // namespace
