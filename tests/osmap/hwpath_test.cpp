// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

using namespace ovra::test;

namespace {

class hwpath : public mapping {
protected:
    // The bytes of the nodes of a path, behind "-1: " when the walk failed.
    static std::string walk(const char *path)
    {
        uefi_device_path_t **nodes = nullptr;
        const int result = add_hardware_paths(path, &nodes);
        const ovra::node_list list(nodes);
        return (result == 0 ? "" : std::to_string(result) + ": ") + bytes_of(nodes);
    }
    static std::string errors(const char *path)
    {
        return errors_of([&] { walk(path); });
    }
    static std::string traces(const char *path)
    {
        return traces_of([&] { walk(path); });
    }
};

TEST_F(hwpath, a_disk_name_is_read_through_its_link)
{
    EXPECT_EQ(walk("c0t0d0s0"), disk_nodes);
    EXPECT_EQ(walk("/dev/dsk/c0t0d0s0"), disk_nodes);
    fakes::put_link("/dev/dsk/c1t0d0s0", "../../devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:a");
    EXPECT_EQ(walk("c1t0d0s0"), disk_nodes);
    fakes::put_link("/dev/rdsk/c1t0d0p0", "../../devices/pci@0,0/pci1000,30@5/sd@3,1:q,raw");
    EXPECT_EQ(walk("/dev/rdsk/c1t0d0p0"),
              std::string(root_bridge) + scsi_function + "03 02 08 00 03 00 01 00 ");
}

TEST_F(hwpath, a_physical_path_is_taken_as_it_is)
{
    EXPECT_EQ(walk("/devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:a"), disk_nodes);
    EXPECT_EQ(walk("../../devices/pci@0,0/pci8086,2829@1f,2/disk@0,0"), disk_nodes);
    EXPECT_EQ(walk("/devices//pci@0,0//pci8086,2829@1f,2/disk@0,0/"), disk_nodes);
    EXPECT_EQ(walk("/devices/pci@0,0"), root_bridge);
}

TEST_F(hwpath, the_root_alone_gives_no_nodes)
{
    for (const char *path : {"/devices/", "/devices///", "/devices/:a"}) {
        EXPECT_EQ(walk(path), "");
        EXPECT_EQ(errors(path), "");
    }
    EXPECT_EQ(traces("/devices/"), "transformed path is: /\n");
}

TEST_F(hwpath, kept_traces_of_a_component_share_a_line)
{
    EXPECT_EQ(errors("/devices/pci@0,0/pci1000,30@5:a"), "");
    EXPECT_EQ(traces("/devices/pci@0,0/pci1000,30@5:a"),
              "transformed path is: /pci@0,0/pci1000,30@5\n"
              "path_comp is pci@0,0 from path:  nodename: pci  busaddr: 0,0\n"
              "cnode_nodename: 'pci' cnode_busaddr: '0,0'\n"
              "match found for pci@0,0\n\n"
              "acpi-cid prop not present\n"
              "path_comp is pci1000,30@5 from path:  nodename: pci1000,30  busaddr: 5\n"
              "cnode_nodename: 'pci-ide' cnode_busaddr: '1f,1'\n"
              "cnode_nodename: 'pci8086,2829' cnode_busaddr: '1f,2'\n"
              "cnode_nodename: 'pci1000,30' cnode_busaddr: '5'\n"
              "match found for pci1000,30@5\n\n");
}

TEST_F(hwpath, no_path)
{
    EXPECT_EQ(walk(nullptr), "-1: ");
    EXPECT_EQ(errors(nullptr), "path cannot be NULL\n");
    EXPECT_EQ(traces(nullptr), "");
}

TEST_F(hwpath, a_link_that_cannot_be_read)
{
    EXPECT_EQ(walk("c9t0d0s0"), "-1: ");
    EXPECT_EQ(errors("c9t0d0s0"), "unable to read link from /dev/dsk/c9t0d0s0\n");
    EXPECT_EQ(errors("/dev/rdsk/c9t0d0s0"), "unable to read link from /dev/rdsk/c9t0d0s0\n");
    EXPECT_EQ(errors("x/dev/y"), "unable to read link from x/dev/y\n");
    EXPECT_EQ(errors(""), "unable to read link from /dev/dsk/\n");
}

TEST_F(hwpath, a_link_to_somewhere_else)
{
    fakes::put_link("/dev/dsk/c9t0d0s0", "../sda1");
    EXPECT_EQ(walk("c9t0d0s0"), "-1: ");
    EXPECT_EQ(errors("c9t0d0s0"), "unexpected physical path: ../sda1\n");
    fakes::put_link("/dev/dsk/c9t0d0s0", "");
    EXPECT_EQ(errors("c9t0d0s0"), "unexpected physical path: \n");
    fakes::put_link("/dev/dsk/c9t0d0s0", "../../devices");
    EXPECT_EQ(errors("c9t0d0s0"), "unexpected physical path: ../../devices\n");
}

TEST_F(hwpath, a_path_or_a_name_has_1023_characters_at_most)
{
    const std::string longest = "/devices/" + std::string(1023 - 9, '/');
    EXPECT_EQ(walk(longest.c_str()), "");
    EXPECT_EQ(walk((longest + "/").c_str()), "-1: ");
    EXPECT_EQ(errors((longest + "/").c_str()), "");
    EXPECT_EQ(traces((longest + "/").c_str()), "");

    const std::string name(1023 - 9, 'c');
    fakes::put_link("/dev/dsk/" + name, "/devices/pci@0,0");
    EXPECT_EQ(walk(name.c_str()), root_bridge);
    EXPECT_EQ(walk((name + "c").c_str()), "-1: ");
    EXPECT_EQ(errors((name + "c").c_str()), "unable to read link from /dev/dsk/" + name + "\n");
}

TEST_F(hwpath, of_a_links_target_1024_bytes_are_read)
{
    const std::string target = "/devices/pci@0,0/" + std::string(1024 - 17, 'x');
    fakes::put_link("/dev/dsk/c9t0d0s0", target);
    EXPECT_EQ(errors("c9t0d0s0"), "malformed node component: " + target.substr(17));
    fakes::put_link("/dev/dsk/c9t0d0s0", target + "@1");
    EXPECT_EQ(errors("c9t0d0s0"), "malformed node component: " + target.substr(17));
}

TEST_F(hwpath, a_component_is_split_at_its_last_at)
{
    fakes::tree_node &odd = fakes::tree().add_bridge("pci@7,0", "PNP0A03", "7");
    odd.name = "pci@0,0";
    odd.address = "1";
    EXPECT_EQ(walk("/devices/pci@0,0@1"), "02 01 0c 00 d0 41 03 0a 07 00 00 00 ");
    EXPECT_THAT(traces("/devices/pci@0,0@1"), ::testing::HasSubstr("nodename: pci@0,0  busaddr: 1\n"));
}

TEST_F(hwpath, kept_no_line_end_after_a_malformed_component)
{
    EXPECT_EQ(walk("/devices/pci@0,0/pci8086,2829"), std::string("-1: ") + root_bridge);
    EXPECT_EQ(errors("/devices/pci@0,0/pci8086,2829"), "malformed node component: pci8086,2829");
    EXPECT_THAT(traces("/devices/disk"), ::testing::EndsWith("path_comp is disk "));
}

TEST_F(hwpath, a_path_below_a_disk)
{
    EXPECT_EQ(walk("/devices/pci@0,0/pci8086,2829@1f,2/disk@0,0/x@0"), "-1: " + disk_nodes);
    EXPECT_EQ(errors("/devices/pci@0,0/pci8086,2829@1f,2/disk@0,0/x@0"), "cnode is null\n");
}

TEST_F(hwpath, a_component_that_is_not_there)
{
    // Names and addresses are compared exactly.
    for (const char *component : {"pci@0,1", "PCI@0,0", "pc@0,0", "pci@00,0", "pci@0,0@", "pci@"}) {
        const std::string path = std::string("/devices/") + component;
        EXPECT_EQ(walk(path.c_str()), "-1: ");
        EXPECT_EQ(errors(path.c_str()), std::string("no match found for component ") + component + "\n");
    }
    EXPECT_EQ(walk("/devices/pci@0,0/pci8086,2829@1f,2/disk@9,0"),
              std::string("-1: ") + root_bridge + sata_function);
}

TEST_F(hwpath, an_absent_name_or_address_counts_as_empty)
{
    fakes::tree_node &bridge = fakes::tree().add_bridge("pci", "PNP0A03", "3");
    EXPECT_EQ(walk("/devices/pci@"), "02 01 0c 00 d0 41 03 0a 03 00 00 00 ");
    EXPECT_THAT(traces("/devices/pci@"), ::testing::HasSubstr("cnode_nodename: 'pci' cnode_busaddr: ''\n"));
    bridge.name = std::nullopt;
    EXPECT_EQ(walk("/devices/@"), "02 01 0c 00 d0 41 03 0a 03 00 00 00 ");
}

TEST_F(hwpath, a_component_that_cannot_be_translated)
{
    fakes::tree().at("pci@0,0").add("isa@1f");
    EXPECT_EQ(walk("/devices/pci@0,0/isa@1f/x@0"), std::string("-1: ") + root_bridge);
    EXPECT_EQ(errors("/devices/pci@0,0/isa@1f/x@0"), "unrecognized node name: isa@1f\n");
}

TEST_F(hwpath, no_tree)
{
    fakes::fail_platform_call(0, fakes::failing::error);
    EXPECT_EQ(errors("/devices/pci@0,0"), "ht_init() failed\n");
    EXPECT_TRUE(fakes::stop_failing());
}

TEST_F(hwpath, nodes_go_behind_those_of_the_list)
{
    uefi_device_path_t **nodes = nullptr;
    ASSERT_EQ(add_hardware_paths("/devices/pci@0,0", &nodes), 0);
    ASSERT_EQ(add_hardware_paths("c0t0d0s0", &nodes), 0);
    const ovra::node_list list(nodes);
    EXPECT_EQ(bytes_of(nodes), root_bridge + disk_nodes);
}

TEST_F(hwpath, kept_an_ide_level_repeats_the_node_before_it)
{
    uefi_device_path_t **nodes = nullptr;
    ASSERT_EQ(add_hardware_paths("/devices/pci@0,0/pci-ide@1f,1/ide@1/hdrv@0,0:a", &nodes), 0);
    const ovra::node_list list(nodes);
    EXPECT_EQ(bytes_of(nodes),
              std::string(root_bridge) + ide_function + ide_function + "03 01 08 00 01 00 00 00 ");
    EXPECT_EQ(nodes[1], nodes[2]);
    EXPECT_EQ(nodes[4], nullptr);
}

TEST_F(hwpath, kept_ide_levels_one_below_the_other_repeat_it_again)
{
    fakes::tree().at("pci@0,0").at("pci-ide@1f,1").at("ide@1").add("ide@0");
    uefi_device_path_t **nodes = nullptr;
    ASSERT_EQ(add_hardware_paths("/devices/pci@0,0/pci-ide@1f,1/ide@1/ide@0", &nodes), 0);
    const ovra::node_list list(nodes);
    EXPECT_EQ(bytes_of(nodes), std::string(root_bridge) + ide_function + ide_function + ide_function);
    EXPECT_EQ(nodes[1], nodes[3]);
    // With nothing in front of it there is nothing to repeat.
    fakes::tree().name = "other";
    fakes::tree().add("ide@0").add("ide@1");
    EXPECT_EQ(walk("/devices/ide@0/ide@1"), "");
}

} // namespace
