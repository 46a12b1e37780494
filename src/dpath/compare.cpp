// SPDX-License-Identifier: MIT
#include <cstring>

#include "src/base/nodes.h"
#include "src/dpath/dpath.h"
#include "src/rt/diag.h"

static bool is_root_bridge(const uefi_acpi_device_path_t *node)
{
    const uint32_t product = node->hid >> 16;
    return product == 0x0a03 || product == 0x0a08; // PNP0A03 PCI, PNP0A08 PCI Express
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
