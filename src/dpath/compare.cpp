// SPDX-License-Identifier: MIT
#include <cstring>

#include "src/base/ids.h"
#include "src/base/nodes.h"
#include "src/dpath/dpath.h"
#include "src/rt/diag.h"

static bool is_root_bridge(const uefi_acpi_device_path_t *node)
{
    const uint16_t product = ovra::eisa_product(node->hid);
    return product == ovra::product_pci_root || product == ovra::product_pcie_root;
}

int compare_dpath_nodes(uefi_device_path_t *a, uefi_device_path_t *b)
{
    if (a->len != b->len)
        return -1;
    if (memcmp(a, b, a->len) == 0)
        return 0;

    const auto *acpi_a = ovra::as<uefi_acpi_device_path_t>(a);
    const auto *acpi_b = ovra::as<uefi_acpi_device_path_t>(b);
    // Kept: of the vendor only the lowest byte counts and the uid not at all; stored paths name a root bridge
    // in either way.
    // [kept_uid_of_root_bridges_does_not_count, kept_of_the_vendor_*, kept_root_bridges_match_*]
    if (acpi_a && acpi_b && (acpi_a->hid & 0xff) == (acpi_b->hid & 0xff) && is_root_bridge(acpi_a) &&
        is_root_bridge(acpi_b)) {
        // Kept: the wording. [kept_wording_of_the_trace_of_root_bridges]
        ovra::trace("Making a matched based on Pcieroot == Pciroot\n");
        return 0;
    }
    return -1;
}
