// SPDX-License-Identifier: MIT
#include <algorithm>

#include "tools/paste/reading.h"
#include "tools/text/nodeparse.h"
#include "tools/text/nodevalues.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

// In which order the numbers stand in the text: their sizes and places in the node.
struct old_node {
    std::string_view name; // with its capitals
    uint8_t type;
    uint8_t subtype;
    std::string_view sizes;
    bool last_first; // the function of a PCI device stands before the device
};

constexpr old_node old_nodes[] = {
    {"PCI", UEFI_HARDWARE, 1, "11", true},        {"PCCARD", UEFI_HARDWARE, 2, "1", false},
    {"ACPI", UEFI_ACPI, 1, "44", false},          {"ATAPI", UEFI_MESSAGING, 1, "112", false},
    {"SCSI", UEFI_MESSAGING, 2, "22", false},     {"USB", UEFI_MESSAGING, 5, "11", false},
    {"Controller", UEFI_HARDWARE, 5, "4", false},
};

std::vector<reading> read_numbers(const old_node &row, const node_fields &fields)
{
    require_count(fields, row.sizes.size(), row.sizes.size());
    // With 0x it is not its style.
    if (std::any_of(fields.values.begin(), fields.values.end(), has_prefix))
        return {};
    std::vector<std::pair<uint64_t, size_t>> all;
    for (size_t at = 0; at < row.sizes.size(); ++at) {
        const auto size = static_cast<size_t>(row.sizes[at] - '0');
        all.emplace_back(hexadecimal_of(fields.values[at], size), size);
    }
    if (row.last_first)
        std::reverse(all.begin(), all.end());
    new_node node(row.type, row.subtype);
    for (const auto &[value, size] : all)
        node.number(value, size);
    return {{of_old_efibootmgr, node.done()}};
}

std::vector<reading> read_old_hard_drive(const node_fields &fields)
{
    const auto &values = fields.values;
    if (fields.count() != 4 || !is_guid(values[3]))
        return {};
    return {{of_old_efibootmgr, new_node(UEFI_MEDIA, 1)
                                    .number(hexadecimal_of(values[0], 4), 4)
                                    .number(hexadecimal_of(values[1], 8), 8)
                                    .number(hexadecimal_of(values[2], 8), 8)
                                    .append(guid_bytes_of(values[3]))
                                    .number(2, 1)
                                    .number(2, 1)
                                    .done()}};
}

} // namespace

std::vector<reading> read_old_node(const node_fields &fields)
{
    // The shell of early firmware: Pci(1F|2).
    if (fields.is("Pci") && fields.arguments.find('|') != std::string::npos) {
        const auto both = parts_of(fields.arguments, '|');
        if (both.size() != 2)
            refuse("it is Pci(device|function)");
        return {{any_dialect, new_node(UEFI_HARDWARE, 1)
                                  .number(hexadecimal_of(both[1], 1), 1)
                                  .number(hexadecimal_of(both[0], 1), 1)
                                  .done()}};
    }
    if (fields.is("HD"))
        return read_old_hard_drive(fields);
    if (fields.name == "Vendor")
        return {{of_old_efibootmgr, {}, "an old efibootmgr prints three kinds of nodes so"}};
    for (const old_node &row : old_nodes) {
        if (fields.name == row.name)
            return read_numbers(row, fields);
    }
    return {};
}

} // namespace tool
