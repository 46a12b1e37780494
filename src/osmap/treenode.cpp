// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <cstring>

#include "src/base/ids.h"
#include "src/base/number.h"
#include "src/dpath/build.h"
#include "src/osmap/osmap.h"
#include "src/osmap/platform.h"
#include "src/rt/diag.h"

using ovra::address_of;
using ovra::fail;
using ovra::hand_over;
using ovra::name_of;
using ovra::new_node;
using ovra::say;
using ovra::trace;

int add_acpi(uint32_t hid, uint32_t uid, uefi_device_path_t **out)
{
    auto node = new_node<uefi_acpi_device_path_t>();
    if (!node)
        return -1;
    node->hid = hid;
    node->uid = uid;
    return hand_over(std::move(node), out);
}

int add_pci(uint8_t function, uint8_t device, uefi_device_path_t **out)
{
    auto node = new_node<uefi_pci_device_path_t>();
    if (!node)
        return -1;
    node->function_number = function;
    node->device_number = device;
    return hand_over(std::move(node), out);
}

int add_ctrl(uint8_t controller, uefi_device_path_t **out)
{
    auto node = new_node<uefi_ctrl_device_path_t>();
    if (!node)
        return -1;
    node->ctrl_number = controller;
    return hand_over(std::move(node), out);
}

int add_scsi(uint16_t target, uint16_t lun, uefi_device_path_t **out)
{
    auto node = new_node<uefi_scsi_device_path_t>();
    if (!node)
        return -1;
    node->target = target;
    node->lun = lun;
    return hand_over(std::move(node), out);
}

int add_atapi(uint8_t channel, uint8_t drive, uint16_t lun, uefi_device_path_t **out)
{
    auto node = new_node<uefi_atapi_device_path_t>();
    if (!node)
        return -1;
    node->channel = channel;
    node->drive = drive;
    node->lun = lun;
    return hand_over(std::move(node), out);
}

int add_sata(uint16_t port, uint16_t port_mult, uint16_t lun, uefi_device_path_t **out)
{
    auto node = new_node<uefi_sata_device_path_t>();
    if (!node)
        return -1;
    node->port = port;
    node->port_mult = port_mult;
    node->lun = lun;
    return hand_over(std::move(node), out);
}

namespace {

// The first integer of a property; false when there is none.
bool first_int(ht_node_t node, const char *property, uint32_t *value)
{
    int *values = nullptr;
    if (ht_prop_lookup_ints(HT_DEV_ANY, node, property, &values) < 1 || !values)
        return false;
    *value = static_cast<uint32_t>(values[0]);
    return true;
}

bool has_ints(ht_node_t node, const char *property)
{
    int *values = nullptr;
    return ht_prop_lookup_ints(HT_DEV_ANY, node, property, &values) >= 0;
}

// The first string of a property; null when there is none.
const char *first_string(ht_node_t node, const char *property)
{
    char *strings = nullptr;
    return ht_prop_lookup_strings(HT_DEV_ANY, node, property, &strings) < 1 ? nullptr : strings;
}

bool is_named(ht_node_t node, const char *name)
{
    return strcmp(name_of(node), name) == 0;
}

// The root is the only node without a parent; one below it is a host bridge or another device of the
// platform.
bool is_top_level(ht_node_t node)
{
    ht_node_t parent = ht_parent_node(node);
    return parent && is_named(parent, "hwplat");
}

// The number of a PNP identifier; what follows it is not looked at.
bool parse_product(const char *hid, uint64_t *product)
{
    constexpr size_t vendor = 3;
    if (strncmp(hid, "PNP", vendor) != 0)
        return false;
    const char *digits = hid + vendor;
    return ovra::scan_number(&digits, 16, product);
}

int translate_top_level(ht_node_t node, uefi_device_path_t **out)
{
    const char *hid = first_string(node, "acpi-hid");
    if (!hid)
        return fail("can't find acpi-hid prop in top level node\n");
    uint64_t product = 0;
    if (!parse_product(hid, &product))
        return fail("unable to parse acpi_hid: %s\n", hid);

    uint64_t uid = 0;
    if (const char *text = first_string(node, "acpi-uid")) {
        const char *digits = text;
        if (!ovra::scan_number(&digits, 10, &uid))
            return fail("unable to parse acpi_uid: %s\n", text);
    } else {
        trace("acpi-uid prop not present\n");
    }
    if (!first_string(node, "acpi-cid"))
        trace("acpi-cid prop not present\n");
    return add_acpi(ovra::eisa_id("PNP", static_cast<uint16_t>(product)), static_cast<uint32_t>(uid), out);
}

bool is_pci_function(ht_node_t node)
{
    return has_ints(node, "class-code") && has_ints(node, "vendor-id") && has_ints(node, "device-id") &&
           has_ints(node, "revision-id");
}

int translate_pci_function(ht_node_t node, uefi_device_path_t **out)
{
    uint32_t reg = 0;
    if (!first_int(node, "reg", &reg))
        return -1;
    return add_pci(reg >> 8 & 7, reg >> 11 & 31, out);
}

bool is_disk(ht_node_t node)
{
    return is_named(node, "disk") || is_named(node, "hdrv") || is_named(node, "sd");
}

// The class code of the controller of a disk; an "ide" level in between has none.
bool controller_class(ht_node_t disk, uint32_t *class_code)
{
    ht_node_t parent = ht_parent_node(disk);
    if (!parent)
        return false;
    if (first_int(parent, "class-code", class_code))
        return true;
    ht_node_t grandparent = ht_parent_node(parent);
    return grandparent && first_int(grandparent, "class-code", class_code);
}

enum subclass : uint32_t { scsi = 0, ide = 1, raid = 4, ata = 5, sata = 6 };

int translate_scsi_disk(uint32_t target, uint32_t lun, uefi_device_path_t **out)
{
    // Kept: a Controller node is made and dropped; stored paths have none, so neither may this one.
    // [kept_no_controller_node_in_front_of_a_scsi_disk]
    uefi_device_path_t *controller = nullptr;
    if (add_ctrl(0, &controller) != 0)
        return -1;
    free(controller);
    return add_scsi(static_cast<uint16_t>(target), static_cast<uint16_t>(lun), out);
}

// The address of the level above, in decimal, is the channel.
int translate_ide_disk(ht_node_t node, uint32_t target, uint32_t lun, uefi_device_path_t **out)
{
    ht_node_t parent = ht_parent_node(node);
    const int64_t channel = parent ? ovra::read_decimal(address_of(parent)) : 0;
    return add_atapi(static_cast<uint8_t>(channel), static_cast<uint8_t>(target), static_cast<uint16_t>(lun),
                     out);
}

// Of a target bits 0 to 4 are the port, 5 to 8 the port of a port multiplier; bit 8 says that there is one.
int translate_sata_disk(uint32_t target, uefi_device_path_t **out)
{
    constexpr uint32_t behind_multiplier = 0x100;
    constexpr uint16_t direct = 0x8000;
    const auto multiplier = static_cast<uint16_t>(target >> 5 & 0xf);
    return add_sata(target & 0x1f,
                    target & behind_multiplier ? multiplier : static_cast<uint16_t>(multiplier | direct), 0,
                    out);
}

// "target,lun", both hexadecimal; what follows is not looked at.
bool parse_address(const char *text, uint32_t *target, uint32_t *lun)
{
    uint64_t first = 0;
    uint64_t second = 0;
    if (!ovra::scan_number(&text, 16, &first) || *text != ',' || !ovra::scan_number(&++text, 16, &second))
        return false;
    *target = static_cast<uint32_t>(first);
    *lun = static_cast<uint32_t>(second);
    return true;
}

int translate_disk(ht_node_t node, uefi_device_path_t **out)
{
    const char *name = name_of(node);
    const char *address = address_of(node);
    uint32_t target = 0;
    uint32_t lun = 0;
    if (!parse_address(address, &target, &lun))
        return fail("unable to parse %s busaddr: %s\n", name, address);
    uint32_t class_code = 0;
    if (!controller_class(node, &class_code))
        return fail("no class code for target disk driver: %s@%s\n", name, address);

    constexpr uint32_t mass_storage = 1;
    const uint32_t base_class = class_code >> 16 & 0xff;
    // Kept: another base class is reported only, and the subclass decides all the same.
    // [kept_another_base_class_is_only_reported]
    if (base_class != mass_storage)
        say("class code is not massstorage: %s@%s: %x\n", name, address, base_class);
    const uint32_t sub_class = class_code >> 8 & 0xff;
    switch (sub_class) {
    case scsi:
    case raid:
        return translate_scsi_disk(target, lun, out);
    case ide:
    case ata:
        return translate_ide_disk(node, target, lun, out);
    case sata:
        return translate_sata_disk(target, out);
    default:
        return fail("unrecognized subclass code:0x%x\n", sub_class);
    }
}

} // namespace

int dinode_to_uefinode(ht_node_t node, uefi_device_path_t **out)
{
    if (is_top_level(node))
        return translate_top_level(node, out);
    if (is_pci_function(node))
        return translate_pci_function(node, out);
    if (is_disk(node))
        return translate_disk(node, out);
    if (is_named(node, "ide")) {
        trace("ignoring ide node.  does not directly translate into an UEFI path\n");
        return 0;
    }
    const char *address = ht_bus_addr(node);
    return fail("unrecognized node name: %s%s%s\n", name_of(node), address ? "@" : "",
                address ? address : "");
}
