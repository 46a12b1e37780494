// SPDX-License-Identifier: MIT
// Snapshots of the device tree.
#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;
using testing::ElementsAre;

// The first value of an integer property; -1 when there is none.
int integer(ht_node_t node, const char *name)
{
    int *values = nullptr;
    return ht_prop_lookup_ints(HT_DEV_ANY, node, name, &values) == 1 ? values[0] : -1;
}

std::string text(ht_node_t node, const char *name)
{
    char *value = nullptr;
    return ht_prop_lookup_strings(HT_DEV_ANY, node, name, &value) == 1 ? value : "(none)";
}

class hwtree_calls : public testing::Test {
protected:
    sample machine{"q35"};
};

TEST_F(hwtree_calls, root)
{
    const snapshot root(ht_init("/", HT_SUBTREE));
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(ht_node_name(root.get()), "hwplat");
    EXPECT_EQ(ht_bus_addr(root.get()), nullptr);
    EXPECT_EQ(ht_parent_node(root.get()), nullptr);
    EXPECT_EQ(ht_sibling_node(root.get()), nullptr);
    ht_node_t bridge = ht_child_node(root.get());
    ASSERT_NE(bridge, nullptr);
    EXPECT_STREQ(ht_node_name(bridge), "pci");
    EXPECT_STREQ(ht_bus_addr(bridge), "0,0");
    EXPECT_EQ(ht_parent_node(bridge), root.get());
}

TEST_F(hwtree_calls, all_nodes_in_order)
{
    EXPECT_THAT(tree_paths(),
                ElementsAre("/", "/pci@0,0", "/pci@0,0/pci8086,29c0@0", "/pci@0,0/pci1234,1111@1",
                            "/pci@0,0/pci1b36,c@2", "/pci@0,0/pci1b36,c@2/pci1af4,1048@0",
                            "/pci@0,0/pci1b36,c@2/pci1af4,1048@0/sd@0,0", "/pci@0,0/pci1af4,1004@3",
                            "/pci@0,0/pci1af4,1004@3/sd@1,2", "/pci@0,0/pci1b36,10@4",
                            "/pci@0,0/pci1b36,10@4/blkdev@0,0", "/pci@0,0/pci1b36,d@5",
                            "/pci@0,0/pci1b36,d@5/blkdev@0,0", "/pci@0,0/pci1af4,1001@6",
                            "/pci@0,0/pci1af4,1001@6/blkdev@0,0", "/pci@0,0/pci8086,2918@1f",
                            "/pci@0,0/pci8086,2922@1f,2", "/pci@0,0/pci8086,2922@1f,2/disk@0,0",
                            "/pci@0,0/pci8086,2922@1f,2/disk@3,0", "/pci@0,0/pci8086,2930@1f,3"));
}

TEST_F(hwtree_calls, properties)
{
    const snapshot bridge(ht_init("/pci@0,0", HT_PROPS));
    EXPECT_EQ(text(bridge.get(), "acpi-hid"), "PNP0A03");
    EXPECT_EQ(text(bridge.get(), "acpi-cid"), "PNP0A03");
    EXPECT_EQ(text(bridge.get(), "acpi-uid"), "0");
    const snapshot sata(ht_init("/pci@0,0/pci8086,2922@1f,2", HT_PROPS));
    EXPECT_EQ(integer(sata.get(), "vendor-id"), 0x8086);
    EXPECT_EQ(integer(sata.get(), "device-id"), 0x2922);
    EXPECT_EQ(integer(sata.get(), "class-code"), 0x010601);
    EXPECT_EQ(integer(sata.get(), "revision-id"), 2);
    EXPECT_EQ(integer(sata.get(), "reg"), 0x1f << 11 | 2 << 8);
    const snapshot behind(ht_init("/pci@0,0/pci1b36,c@2/pci1af4,1048@0", HT_PROPS));
    EXPECT_EQ(integer(behind.get(), "reg"), 1 << 16);
}

TEST_F(hwtree_calls, properties_that_are_not_there)
{
    const snapshot sata(ht_init("/pci@0,0/pci8086,2922@1f,2", HT_PROPS));
    int *values = nullptr;
    char *strings = nullptr;
    for (const char *name : {"acpi-hid", "", "Reg", "vendor"}) {
        EXPECT_EQ(ht_prop_lookup_ints(HT_DEV_ANY, sata.get(), name, &values), -1) << name;
        EXPECT_EQ(ht_prop_lookup_strings(HT_DEV_ANY, sata.get(), name, &strings), -1) << name;
    }
    EXPECT_EQ(ht_prop_lookup_strings(HT_DEV_ANY, sata.get(), "vendor-id", &strings), -1) << "of another type";
    EXPECT_EQ(values, nullptr);
    EXPECT_EQ(strings, nullptr);
    const snapshot without(ht_init("/pci@0,0/pci8086,2922@1f,2", 0));
    EXPECT_EQ(integer(without.get(), "vendor-id"), -1);
}

TEST_F(hwtree_calls, part_of_the_tree)
{
    const snapshot alone(ht_init("/pci@0,0", HT_PROPS));
    EXPECT_EQ(ht_child_node(alone.get()), nullptr);
    EXPECT_EQ(ht_parent_node(alone.get()), nullptr);
    EXPECT_EQ(ht_sibling_node(alone.get()), nullptr);

    const snapshot part(ht_init("/pci@0,0/pci8086,2922@1f,2", HT_SUBTREE));
    EXPECT_EQ(ht_sibling_node(part.get()), nullptr) << "a neighbour is not part of it";
    ht_node_t first = ht_child_node(part.get());
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(ht_bus_addr(first), "0,0");
    ht_node_t second = ht_sibling_node(first);
    ASSERT_NE(second, nullptr);
    EXPECT_STREQ(ht_bus_addr(second), "3,0");
    EXPECT_EQ(ht_sibling_node(second), nullptr);
    char *path = ht_devfs_path(second);
    EXPECT_STREQ(path, "/pci@0,0/pci8086,2922@1f,2/disk@3,0");
    ht_devfs_path_free(path);
}

TEST_F(hwtree_calls, paths_that_are_not_there)
{
    for (const char *path :
         {"", "pci@0,0", "/pci", "/pci@0,0/", "/pci@1,0", "//", "/hwplat", "/pci@0,0/.."}) {
        errno = 0;
        EXPECT_EQ(ht_init(path, HT_SUBTREE | HT_PROPS), nullptr) << path;
        EXPECT_EQ(errno, ENOENT) << path;
    }
}

TEST_F(hwtree_calls, snapshot_stays_while_the_machine_changes)
{
    const snapshot before(ht_init("/", HT_SUBTREE | HT_PROPS));
    fs::remove_all(machine.root() / "sys");
    EXPECT_THAT(tree_paths(), ElementsAre("/"));
    ht_node_t bridge = ht_child_node(before.get());
    ASSERT_NE(bridge, nullptr);
    EXPECT_EQ(text(bridge, "acpi-hid"), "PNP0A03");
}

TEST_F(hwtree_calls, null_is_released)
{
    ht_fini(nullptr);
    ht_devfs_path_free(nullptr);
}

} // namespace
