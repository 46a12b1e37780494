// SPDX-License-Identifier: MIT
#include "src/base/ids.h"
#include "src/base/words.h"
#include "src/print/rows.h"

using namespace ovra;

namespace {

// Devices that have a name of their own, by their product number.
constexpr word devices[] = {
    {"Keyboard", product_keyboard}, {"ParallelPort", product_parallel_port}, {"Serial", product_serial},
    {"Floppy", product_floppy},     {"PciRoot", product_pci_root},           {"PcieRoot", product_pcie_root},
};

// Kept: of an EISA identifier only the product number is looked at; every vendor prints as "PNP".
// [kept_acpi_vendor_is_not_looked_at]
void print_acpi(const uefi_acpi_device_path_t &node, text &to)
{
    if (const word *device = by_value(devices, eisa_product(node.hid)))
        to.add("/%s(0x%X)", device->text, node.uid);
    else
        to.add("/Acpi(PNP%04X,0x%X)", eisa_product(node.hid), node.uid);
}

void print_acpi_expanded(const uefi_acpiex_device_path_t &node, text &to)
{
    to.add("/AcpiEx(PNP%04X,", eisa_product(node.hid));
    if (node.cid == 0)
        to.put("0");
    else
        to.add("PNP%04X", eisa_product(node.cid));
    to.add(",0x%X", node.uid);
    std::span<const uint8_t> strings = tail(node);
    for (int i = 0; i < 3; ++i) {
        const std::string_view string = bounded_string(strings);
        to.put(",");
        to.put(string);
        strings = strings.subspan(std::min(strings.size(), string.size() + 1));
    }
    to.put(")");
}

void print_acpi_adr(const uefi_acpiadr_device_path_t &node, text &to)
{
    const size_t count = node.len / sizeof(uint32_t) - 1;
    const std::span<const uint8_t> values = tail(node);
    to.put("/AcpiAdr(");
    for (size_t i = 0; i < count; ++i) {
        uint32_t value;
        memcpy(&value, values.data() + i * sizeof value, sizeof value);
        to.add("%u%s", value, i + 1 < count ? "," : "");
    }
    to.put(")");
}

constexpr printed acpi[] = {
    row<uefi_acpi_device_path_t, print_acpi>(),
    row<uefi_acpiex_device_path_t, print_acpi_expanded>(),
    row<uefi_acpiadr_device_path_t, print_acpi_adr>(),
};
static_assert(distinct_subtypes(acpi));

} // namespace

const printed_rows ovra::acpi_rows = acpi;
