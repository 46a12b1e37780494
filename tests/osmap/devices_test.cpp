// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

using namespace ovra::test;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class devices : public mapping {
protected:
    // The result of decoding and the records as "device" or "device file", those before a failure too.
    std::vector<std::string> decode(const std::string &path)
    {
        bytes packed = from_hex(path); // of exactly its length
        ovra_path_t **paths = reinterpret_cast<ovra_path_t **>(&packed);
        result = ovra_epath_decode_to_devices(hdl, packed.data(), static_cast<int>(packed.size()), &paths);
        std::vector<std::string> records;
        for (ovra_path_t **record = paths; record && *record; ++record) {
            EXPECT_TRUE(memlist_holds(hdl, (*record)->device_path));
            records.push_back((*record)->device_path +
                              ((*record)->file_path ? std::string(" ") + (*record)->file_path : ""));
        }
        is_null = !paths;
        free_dpath(hdl, paths);
        return records;
    }
    std::string errors(const std::string &path)
    {
        return errors_of([&] { decode(path); });
    }
    std::string traces(const std::string &path)
    {
        return traces_of([&] { decode(path); });
    }

    int result = 7;
    bool is_null = false;
};

TEST_F(devices, the_short_form_of_a_slice)
{
    EXPECT_THAT(decode(std::string(slice_node) + end_entire), ElementsAre(std::string(sata_path) + ":a"));
    EXPECT_EQ(result, 0);
    EXPECT_THAT(errors(std::string(slice_node) + end_entire),
                ::testing::MatchesRegex("no VS_SLICE descriptors for 0x[0-9a-f]+\n")); // of the other drive
}

TEST_F(devices, the_short_form_of_a_partition)
{
    EXPECT_THAT(decode(std::string(partition_node) + file_node + end_entire),
                ElementsAre("/pci@0,0/pci8086,2829@1f,2/disk@1,0:r"));
    EXPECT_EQ(result, 0);
    // An END node is not needed.
    EXPECT_THAT(decode(partition_node), ElementsAre("/pci@0,0/pci8086,2829@1f,2/disk@1,0:r"));
}

TEST_F(devices, alike_disks_give_a_record_each)
{
    fakes::add_mbr_drive("c1t0d0", 0x12345678).add_partition("/dev/rdsk/c1t0d0p1", 2048, 409600);
    fakes::put_link("/dev/dsk/c1t0d0p1", "/devices/pci@1,0/pci8086,a282@17/disk@2,0:r");
    EXPECT_THAT(decode(partition_node),
                ElementsAre("/pci@0,0/pci8086,2829@1f,2/disk@1,0:r", "/pci@1,0/pci8086,a282@17/disk@2,0:r"));
    EXPECT_EQ(result, 0);
}

TEST_F(devices, a_link_that_cannot_be_read_fails_at_the_end)
{
    for (const char *name : {"c1t0d0", "c2t0d0"})
        fakes::add_mbr_drive(name, 0x12345678)
            .add_partition(std::string("/dev/rdsk/") + name + "p1", 2048, 409600);
    fakes::put_link("/dev/dsk/c2t0d0p1", "/devices/pci@1,0/pci8086,a282@17/disk@2,0:r");
    EXPECT_THAT(decode(partition_node),
                ElementsAre("/pci@0,0/pci8086,2829@1f,2/disk@1,0:r", "/pci@1,0/pci8086,a282@17/disk@2,0:r"));
    EXPECT_EQ(result, -1);
    EXPECT_THAT(errors(partition_node), ::testing::EndsWith("unable to read link from /dev/dsk/c1t0d0p1\n"));
    EXPECT_THAT(traces(partition_node), ::testing::Not(HasSubstr("unable")));
}

TEST_F(devices, a_link_to_somewhere_else_fails_at_once)
{
    fakes::add_mbr_drive("c1t0d0", 0x12345678).add_partition("/dev/rdsk/c1t0d0p1", 2048, 409600);
    fakes::put_link("/dev/dsk/c1t0d0p1", "/devices/pci@1,0/pci8086,a282@17/disk@2,0:r");
    fakes::put_link("/dev/dsk/c0t1d0p1", "../sda1");
    EXPECT_THAT(decode(partition_node), IsEmpty());
    EXPECT_EQ(result, -1);
    EXPECT_THAT(errors(partition_node), ::testing::EndsWith("unexpected physicalpath\n"));
}

TEST_F(devices, of_a_links_target_1023_bytes_are_read)
{
    const std::string target = "/devices/" + std::string(1100, 'x');
    fakes::put_link("/dev/dsk/c0t0d0s0", target);
    EXPECT_THAT(decode(slice_node), ElementsAre(target.substr(8, 1023 - 8)));
}

TEST_F(devices, a_disk_name_that_does_not_fit_a_link)
{
    const std::string name(1024 - 9, 'x');
    fakes::drives()[0].media[0].slices[0].name = "/dev/dsk/" + name;
    EXPECT_THAT(decode(slice_node), IsEmpty());
    EXPECT_EQ(result, -1);
    EXPECT_THAT(errors(slice_node),
                ::testing::EndsWith("unable to read link from /dev/dsk/" + name.substr(1) + "\n"));
}

TEST_F(devices, a_hard_drive_node_that_stands_for_no_disk)
{
    std::string node = slice_node;
    node.replace(41 * 3, 2, "00");
    EXPECT_THAT(decode(node + end_entire), IsEmpty());
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(is_null);
    EXPECT_EQ(errors(node + end_entire), "unable to get logical device\n");
    EXPECT_EQ(traces(node + end_entire), "");
    node.replace(41 * 3, 2, "02");
    node.replace(24 * 3, 2, "38");
    EXPECT_THAT(errors(node), ::testing::EndsWith("unable to get logical device\n"));
    EXPECT_EQ(result, -1);
    // Too short to have a signature type.
    EXPECT_EQ(errors(std::string("04 01 05 00 00 ") + end_entire), "unable to get logical device\n");
    EXPECT_EQ(result, -1);
}

TEST_F(devices, a_hardware_path)
{
    EXPECT_THAT(decode(disk_nodes + end_entire), ElementsAre(sata_path));
    EXPECT_EQ(result, 0);
    EXPECT_THAT(decode(disk_nodes + file_node + end_entire), ElementsAre(std::string(sata_path) + " \\"));
    EXPECT_EQ(result, 0);
}

TEST_F(devices, traces_of_a_hardware_path)
{
    EXPECT_EQ(traces(std::string(root_bridge) + sata_function + file_node + end_entire),
              "acpi-cid prop not present\n"
              "cnode_nodename: 'pci' cnode_busaddr: '0,0'\n"
              "cnode_nodename: 'pci8086,2829' cnode_busaddr: '1f,2'\n"
              "full match was found /pci@0,0/pci8086,2829@1f,2 \\\n");
    EXPECT_EQ(traces(end_entire), "full match was found / \n");
}

TEST_F(devices, kept_every_tried_node_is_told_as_an_error)
{
    EXPECT_EQ(errors(std::string(root_bridge) + sata_function + end_entire),
              "encode cnode successful: pci@0,0  /PciRoot(0x0)\n"
              "encode cnode successful: pci-ide@1f,1  /Pci(0x1f,0x1)\n"
              "encode cnode successful: pci8086,2829@1f,2  /Pci(0x1f,0x2)\n");
}

TEST_F(devices, the_end_alone_is_the_root)
{
    EXPECT_THAT(decode(end_entire), ElementsAre("/"));
    EXPECT_EQ(result, 0);
    // An END node of any subtype ends an instance.
    EXPECT_THAT(decode(std::string("7f 33 04 00 ") + end_entire), ElementsAre("/", "/"));
}

TEST_F(devices, an_empty_path_has_no_devices)
{
    EXPECT_THAT(decode(""), IsEmpty());
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(is_null);
    EXPECT_EQ(errors(""), "");
    // Nodes behind the last END node belong to no instance.
    EXPECT_THAT(decode(disk_nodes + file_node), IsEmpty());
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(is_null);
    EXPECT_THAT(decode(std::string(end_instance) + disk_nodes), ElementsAre("/"));
    EXPECT_EQ(result, 0);
}

TEST_F(devices, each_instance_is_matched_from_the_root)
{
    const std::string second = std::string(root_bridge) + scsi_function + "03 02 08 00 03 00 01 00 ";
    EXPECT_THAT(decode(disk_nodes + file_node + end_instance + second + end_instance + root_bridge +
                       file_node + end_entire),
                ElementsAre(std::string(sata_path) + " \\", "/pci@0,0/pci1000,30@5/sd@3,1", "/pci@0,0 \\"));
    EXPECT_EQ(result, 0);
}

TEST_F(devices, file_nodes_of_an_instance_are_joined)
{
    EXPECT_THAT(decode(file_node + root_bridge + file_node + end_entire), ElementsAre("/pci@0,0 \\\\"));
}

TEST_F(devices, kept_a_disk_has_nothing_below_it)
{
    EXPECT_THAT(decode(disk_nodes + slice_node + end_entire), IsEmpty());
    EXPECT_EQ(result, -1);
    EXPECT_THAT(errors(disk_nodes + slice_node + end_entire), ::testing::EndsWith("cnode is null\n"));
    // In front of one a hard-drive node is a node like others.
    EXPECT_THAT(errors(std::string(root_bridge) + slice_node + end_entire),
                ::testing::EndsWith("only partial match found: /pci@0,0...\n"));
}

TEST_F(devices, kept_root_bridges_match_whatever_their_kind_and_uid)
{
    EXPECT_THAT(decode(std::string(second_bridge) + end_entire), ElementsAre("/pci@0,0"));
    EXPECT_THAT(decode(std::string("02 01 0c 00 d0 ff 08 0a 99 00 00 00 ") + end_entire),
                ElementsAre("/pci@0,0"));
    // The first one that matches is the one, and what is below another is not found.
    EXPECT_THAT(decode(std::string(second_bridge) + "01 01 06 00 00 17 " + end_entire), IsEmpty());
    EXPECT_EQ(result, -1);
}

TEST_F(devices, a_path_that_matches_nothing)
{
    const std::string other = "02 01 0c 00 d0 41 01 03 00 00 00 00 ";
    EXPECT_THAT(decode(other + end_entire), IsEmpty());
    EXPECT_EQ(result, -1);
    EXPECT_THAT(errors(other + end_entire), ::testing::EndsWith("no match found for component\n"));
    // Records of instances before it stay.
    EXPECT_THAT(decode(disk_nodes + end_instance + other + end_entire), ElementsAre(sata_path));
    EXPECT_EQ(result, -1);
}

TEST_F(devices, a_path_that_matches_in_part)
{
    const std::string path = std::string(root_bridge) + sata_function + "03 12 0a 00 09 00 00 80 00 00 ";
    EXPECT_THAT(decode(path + end_entire), IsEmpty());
    EXPECT_EQ(result, -1);
    EXPECT_THAT(errors(path + end_entire),
                ::testing::EndsWith("only partial match found: /pci@0,0/pci8086,2829@1f,2...\n"));
}

TEST_F(devices, a_tree_without_devices)
{
    fakes::tree().children.clear();
    EXPECT_EQ(errors(disk_nodes + end_entire), "cnode is null\n");
    EXPECT_EQ(traces(disk_nodes + end_entire), "");
    EXPECT_EQ(result, -1);
}

TEST_F(devices, no_tree)
{
    for (const std::string &path : {std::string(), disk_nodes}) {
        fakes::fail_platform_call(0, fakes::failing::error);
        EXPECT_EQ(errors(path), "ht_init() failed\n");
        EXPECT_TRUE(fakes::stop_failing());
        EXPECT_EQ(result, -1);
    }
}

TEST_F(devices, no_physical_path)
{
    fakes::fail_platform_call(1, fakes::failing::error);
    EXPECT_EQ(errors(end_entire), "unable to get devfs path\n");
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(fakes::stop_failing());

    const std::string path = std::string(root_bridge) + sata_disk;
    quietly([&] { decode(path); });
    const unsigned before = fakes::platform_calls();
    quietly([&] { decode(path); });
    fakes::fail_platform_call(fakes::platform_calls() - before - 1, fakes::failing::error); // the last
    EXPECT_THAT(errors(path), ::testing::EndsWith("unable to get devfs path\n"));
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(fakes::stop_failing());
}

TEST_F(devices, what_cannot_be_translated_is_passed_over)
{
    auto &bridge = fakes::tree().at("pci@0,0");
    bridge.children.push_front({.name = "isa", .address = std::nullopt});
    bridge.children.push_front({.name = "isa", .address = "1f"});
    EXPECT_EQ(errors(std::string(root_bridge) + ide_function + end_entire),
              "encode cnode successful: pci@0,0  /PciRoot(0x0)\n"
              "unrecognized node name: isa@1f\n"
              "unable to encode cnode: isa@1f\n"
              "unrecognized node name: isa\n"
              "unable to encode cnode: isa@\n"
              "encode cnode successful: pci-ide@1f,1  /Pci(0x1f,0x1)\n");
    EXPECT_EQ(result, 0);
}

TEST_F(devices, the_walk_never_goes_through_an_ide_level)
{
    const std::string path = std::string(root_bridge) + ide_function;
    EXPECT_THAT(decode(path + "03 01 08 00 01 00 00 00 " + end_entire), IsEmpty());
    EXPECT_EQ(result, -1);
    EXPECT_THAT(errors(path + ide_function + end_entire),
                ::testing::EndsWith("encode cnode successful: ide@0  \n"
                                    "encode cnode successful: ide@1  \n"
                                    "only partial match found: /pci@0,0/pci-ide@1f,1...\n"));
}

TEST_F(devices, bytes_that_are_no_path)
{
    for (const char *path : {"01", "01 01", "01 01 03 00", "01 01 06 00 00", "06 00 04 00", "01 01 00 00"}) {
        EXPECT_THAT(decode(path), IsEmpty());
        EXPECT_EQ(result, -1);
        EXPECT_TRUE(is_null);
        EXPECT_THAT(errors(path), ::testing::EndsWith("device_path_unpack failed in decode_devices\n"));
        EXPECT_EQ(traces(path), "");
    }
}

} // namespace
