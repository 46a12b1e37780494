// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

using ovra::owned;
using namespace ovra::test;

namespace {

class treenode : public mapping {
protected:
    static std::string component_of(ht_node_t node)
    {
        std::string component = ovra::name_of(node);
        if (ht_bus_addr(node))
            component.append("@").append(ht_bus_addr(node));
        return component;
    }

    // The node of a path of components, from the root.
    static ht_node_t find(ht_node_t node, const std::vector<std::string> &components)
    {
        for (const std::string &component : components) {
            node = ht_child_node(node);
            while (node && component_of(node) != component)
                node = ht_sibling_node(node);
        }
        return node;
    }

    // The bytes of the node that stands for a tree node: "none" for no node, "-1" for a failure.
    static std::string translate(const std::vector<std::string> &components)
    {
        const ovra::snapshot root = ovra::take_snapshot();
        uefi_device_path_t *node = nullptr;
        const int result = dinode_to_uefinode(find(root.get(), components), &node);
        const owned<uefi_device_path_t> owner(node);
        if (result != 0) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(node, nullptr);
            return "-1";
        }
        return node ? to_hex(node, node->len) + " " : "none";
    }

    static std::string errors(const std::vector<std::string> &components)
    {
        return errors_of([&] { translate(components); });
    }
    static std::string traces(const std::vector<std::string> &components)
    {
        return traces_of([&] { translate(components); });
    }
};

template <typename constructor>
std::string built(const constructor &construct)
{
    uefi_device_path_t *node = nullptr;
    EXPECT_EQ(construct(&node), 0);
    const owned<uefi_device_path_t> owner(node);
    return to_hex(node, node->len);
}

TEST_F(treenode, constructors_fill_every_field)
{
    EXPECT_EQ(built([](auto **out) { return add_acpi(0x0a0341d0, 0x01020304, out); }),
              hex("02 01 0c 00 d041030a 04030201"));
    EXPECT_EQ(built([](auto **out) { return add_pci(7, 0x1f, out); }), hex("01 01 06 00 07 1f"));
    EXPECT_EQ(built([](auto **out) { return add_ctrl(255, out); }), hex("01 05 08 00 ff000000"));
    EXPECT_EQ(built([](auto **out) { return add_scsi(0x0102, 0x0304, out); }), hex("03 02 08 00 0201 0403"));
    EXPECT_EQ(built([](auto **out) { return add_atapi(1, 2, 0x0304, out); }), hex("03 01 08 00 01 02 0403"));
    EXPECT_EQ(built([](auto **out) { return add_sata(0x0102, 0x0304, 0x0506, out); }),
              hex("03 12 0a 00 0201 0403 0605"));
}

TEST_F(treenode, host_bridges)
{
    EXPECT_EQ(translate({"pci@0,0"}), root_bridge);
    EXPECT_EQ(translate({"pci@1,0"}), second_bridge);
    EXPECT_EQ(errors({"pci@0,0"}), "");
    EXPECT_EQ(traces({"pci@0,0"}), "acpi-cid prop not present\n");
    fakes::tree().add_bridge("pci@2,0", "PNPa08", nullptr).strings["acpi-cid"] = {"PNP0A03"};
    EXPECT_EQ(translate({"pci@2,0"}), "02 01 0c 00 d0 41 08 0a 00 00 00 00 ");
    EXPECT_EQ(traces({"pci@2,0"}), "acpi-uid prop not present\n");
}

TEST_F(treenode, a_bridge_without_a_hid_is_refused)
{
    fakes::tree().add_bridge("pci@2,0", nullptr, "0");
    EXPECT_EQ(translate({"pci@2,0"}), "-1");
    EXPECT_EQ(errors({"pci@2,0"}), "can't find acpi-hid prop in top level node\n");
    EXPECT_EQ(traces({"pci@2,0"}), "");
    fakes::tree().add_bridge("pci@3,0", "ACPI0001", "0");
    EXPECT_EQ(translate({"pci@3,0"}), "-1");
    EXPECT_EQ(errors({"pci@3,0"}), "unable to parse acpi_hid: ACPI0001\n");
    fakes::tree().add_bridge("pci@4,0", "", "0");
    EXPECT_EQ(errors({"pci@4,0"}), "unable to parse acpi_hid: \n");
    fakes::tree().add("pci@5,0").strings["acpi-hid"] = {};
    EXPECT_EQ(errors({"pci@5,0"}), "can't find acpi-hid prop in top level node\n");
}

TEST_F(treenode, a_uid_that_is_no_number_is_refused)
{
    fakes::tree().add_bridge("pci@2,0", "PNP0A03", "_SB");
    EXPECT_EQ(translate({"pci@2,0"}), "-1");
    EXPECT_EQ(errors({"pci@2,0"}), "unable to parse acpi_uid: _SB\n");
    EXPECT_EQ(traces({"pci@2,0"}), "");
}

TEST_F(treenode, everything_below_the_root_is_a_top_level_node)
{
    fakes::tree().add("ide@0");
    EXPECT_EQ(errors({"ide@0"}), "can't find acpi-hid prop in top level node\n");
}

TEST_F(treenode, functions_take_their_numbers_from_reg)
{
    EXPECT_EQ(translate({"pci@0,0", "pci8086,2829@1f,2"}), sata_function);
    EXPECT_EQ(translate({"pci@0,0", "pci1000,30@5"}), scsi_function);
    auto &function = fakes::tree().at("pci@0,0").at("pci1000,30@5");
    function.ints["reg"] = {static_cast<int>(0x82ff1f00), 1, 2};
    EXPECT_EQ(translate({"pci@0,0", "pci1000,30@5"}), "01 01 06 00 07 03 ");
    for (const auto &values : {std::vector<int>{}, std::vector<int>{0}}) {
        // Only the presence of the others matters.
        for (const char *property : {"class-code", "vendor-id", "device-id", "revision-id"})
            function.ints[property] = values;
        EXPECT_EQ(translate({"pci@0,0", "pci1000,30@5"}), "01 01 06 00 07 03 ");
    }
}

TEST_F(treenode, a_function_without_reg_fails_silently)
{
    auto &function = fakes::tree().at("pci@0,0").at("pci1000,30@5");
    for (const bool is_there : {true, false}) {
        function.ints.erase("reg");
        if (is_there)
            function.ints["reg"] = {};
        EXPECT_EQ(translate({"pci@0,0", "pci1000,30@5"}), "-1");
        EXPECT_EQ(errors({"pci@0,0", "pci1000,30@5"}), "");
    }
}

TEST_F(treenode, without_one_of_its_properties_it_is_no_function)
{
    for (const char *property : {"class-code", "vendor-id", "device-id", "revision-id"}) {
        auto &function = fakes::tree().at("pci@0,0").at("pci1000,30@5");
        const auto before = function.ints;
        function.ints.erase(property);
        EXPECT_EQ(errors({"pci@0,0", "pci1000,30@5"}), "unrecognized node name: pci1000,30@5\n") << property;
        function.ints = before;
    }
}

TEST_F(treenode, sata_disks)
{
    EXPECT_EQ(translate({"pci@0,0", "pci8086,2829@1f,2", "disk@0,0"}), sata_disk);
    EXPECT_EQ(translate({"pci@0,0", "pci8086,2829@1f,2", "disk@1,0"}), "03 12 0a 00 01 00 00 80 00 00 ");
}

TEST_F(treenode, a_port_behind_a_multiplier_comes_out_of_the_target)
{
    EXPECT_EQ(translate({"pci@0,0", "pci8086,2829@1f,2", "disk@120,0"}), "03 12 0a 00 00 00 09 00 00 00 ");
    auto &sata = fakes::tree().at("pci@0,0").at("pci8086,2829@1f,2");
    sata.add("disk@7f,5");
    EXPECT_EQ(translate({"pci@0,0", "pci8086,2829@1f,2", "disk@7f,5"}), "03 12 0a 00 1f 00 03 80 00 00 ");
    sata.add("disk@ffffffff,0");
    EXPECT_EQ(translate({"pci@0,0", "pci8086,2829@1f,2", "disk@ffffffff,0"}),
              "03 12 0a 00 1f 00 0f 00 00 00 ");
}

TEST_F(treenode, kept_no_controller_node_in_front_of_a_scsi_disk)
{
    EXPECT_EQ(translate({"pci@0,0", "pci1000,30@5", "sd@3,1"}), "03 02 08 00 03 00 01 00 ");
    auto &raid = fakes::tree().at("pci@0,0").add_function("pci1000,5d@6", 0x010400, 6, 0);
    raid.add("sd@12345,6789a");
    EXPECT_EQ(translate({"pci@0,0", "pci1000,5d@6", "sd@12345,6789a"}), "03 02 08 00 45 23 9a 78 ");
}

TEST_F(treenode, ide_disks_take_their_channel_from_the_level_above)
{
    EXPECT_EQ(translate({"pci@0,0", "pci-ide@1f,1", "ide@1", "hdrv@0,0"}), "03 01 08 00 01 00 00 00 ");
    EXPECT_EQ(translate({"pci@0,0", "pci-ide@1f,1", "ide@0", "hdrv@1,0"}), "03 01 08 00 00 01 00 00 ");
    auto &ata = fakes::tree().at("pci@0,0").add_function("pci1022,9@7", 0x010500, 7, 0);
    ata.add("ide@258x").add("disk@1ff,12");
    EXPECT_EQ(translate({"pci@0,0", "pci1022,9@7", "ide@258x", "disk@1ff,12"}), "03 01 08 00 02 ff 12 00 ");
    ata.add("ide").add("disk@1,0");
    EXPECT_EQ(translate({"pci@0,0", "pci1022,9@7", "ide", "disk@1,0"}), "03 01 08 00 00 01 00 00 ");
}

TEST_F(treenode, a_disk_address_needs_two_numbers)
{
    auto &sata = fakes::tree().at("pci@0,0").at("pci8086,2829@1f,2");
    for (const char *address : {"5", "5,", "x,1", "", "5.1"}) {
        sata.add(std::string("disk@") + address);
        EXPECT_EQ(translate({"pci@0,0", "pci8086,2829@1f,2", std::string("disk@") + address}), "-1");
        EXPECT_EQ(errors({"pci@0,0", "pci8086,2829@1f,2", std::string("disk@") + address}),
                  std::string("unable to parse disk busaddr: ") + address + "\n");
    }
    sata.add("sd");
    EXPECT_EQ(errors({"pci@0,0", "pci8086,2829@1f,2", "sd"}), "unable to parse sd busaddr: \n");
}

TEST_F(treenode, a_disk_without_a_controller_is_refused)
{
    fakes::tree().at("pci@0,0").add("bus@1").add("disk@1,0");
    EXPECT_EQ(translate({"pci@0,0", "bus@1", "disk@1,0"}), "-1");
    EXPECT_EQ(errors({"pci@0,0", "bus@1", "disk@1,0"}), "no class code for target disk driver: disk@1,0\n");
    // Not further up than the grandparent.
    auto &ide = fakes::tree().at("pci@0,0").at("pci-ide@1f,1");
    ide.at("ide@0").add("x@0").add("hdrv@1,0");
    EXPECT_EQ(errors({"pci@0,0", "pci-ide@1f,1", "ide@0", "x@0", "hdrv@1,0"}),
              "no class code for target disk driver: hdrv@1,0\n");
    // A property without a value is none.
    auto &sata = fakes::tree().at("pci@0,0").at("pci8086,2829@1f,2");
    sata.ints["class-code"] = {};
    EXPECT_EQ(errors({"pci@0,0", "pci8086,2829@1f,2", "disk@0,0"}),
              "no class code for target disk driver: disk@0,0\n");
}

TEST_F(treenode, kept_another_base_class_is_only_reported)
{
    auto &function = fakes::tree().at("pci@0,0").add_function("pci1af4,1@8", 0xff0600, 8, 0);
    function.add("disk@0,0");
    EXPECT_EQ(translate({"pci@0,0", "pci1af4,1@8", "disk@0,0"}), sata_disk);
    EXPECT_EQ(errors({"pci@0,0", "pci1af4,1@8", "disk@0,0"}),
              "class code is not massstorage: disk@0,0: ff\n");
    EXPECT_EQ(traces({"pci@0,0", "pci1af4,1@8", "disk@0,0"}), "");
}

TEST_F(treenode, other_subclasses_are_refused)
{
    for (const int subclass : {2, 3, 7, 8, 0x80}) {
        auto &function = fakes::tree().at("pci@0,0").add_function("pci1af4,1@" + std::to_string(subclass),
                                                                  0x010000 | subclass << 8, 8, 0);
        function.add("disk@0,0");
        const std::vector<std::string> disk = {"pci@0,0", "pci1af4,1@" + std::to_string(subclass),
                                               "disk@0,0"};
        char message[64];
        snprintf(message, sizeof message, "unrecognized subclass code:0x%x\n",
                 static_cast<unsigned>(subclass));
        EXPECT_EQ(translate(disk), "-1");
        EXPECT_EQ(errors(disk), message);
    }
}

TEST_F(treenode, an_ide_level_stands_for_nothing)
{
    EXPECT_EQ(translate({"pci@0,0", "pci-ide@1f,1", "ide@1"}), "none");
    EXPECT_EQ(errors({"pci@0,0", "pci-ide@1f,1", "ide@1"}), "");
    EXPECT_EQ(traces({"pci@0,0", "pci-ide@1f,1", "ide@1"}),
              "ignoring ide node.  does not directly translate into an UEFI path\n");
}

TEST_F(treenode, anything_else_is_refused)
{
    auto &bridge = fakes::tree().at("pci@0,0");
    bridge.add("isa@1f");
    EXPECT_EQ(translate({"pci@0,0", "isa@1f"}), "-1");
    EXPECT_EQ(errors({"pci@0,0", "isa@1f"}), "unrecognized node name: isa@1f\n");
    EXPECT_EQ(traces({"pci@0,0", "isa@1f"}), "");
    bridge.add("isa");
    EXPECT_EQ(errors({"pci@0,0", "isa"}), "unrecognized node name: isa\n");
    bridge.add("").name = std::nullopt;
    EXPECT_EQ(errors({"pci@0,0", ""}), "unrecognized node name: \n");
    EXPECT_EQ(errors({}), "unrecognized node name: hwplat\n");
    fakes::tree().name = std::nullopt; // its children are then no top-level nodes
    EXPECT_EQ(errors({"pci@0,0"}), "unrecognized node name: pci@0,0\n");
}

} // namespace
