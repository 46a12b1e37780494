// SPDX-License-Identifier: MIT
#include <algorithm>
#include <optional>

#include "src/base/ascii.h"
#include "tools/paste/partition.h"
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

using read_number = uint64_t (*)(std::string_view text, size_t size);

// The node of a slice: its number, its blocks and its identifier.
bytes slice_node(uint64_t number, const std::string_view *blocks, std::string_view guid, read_number read)
{
    return new_node(UEFI_MEDIA, 1)
        .number(number, 4)
        .number(read(blocks[0], 8), 8)
        .number(read(blocks[1], 8), 8)
        .append(guid_bytes_of(guid))
        .number(2, 1)
        .number(2, 1)
        .done();
}

// What the disks of this machine say of a partition whose blocks may be decimal or hexadecimal.
std::optional<reading> reading_on_disk(const bytes &decimal, const bytes &hexadecimal, std::string_view guid)
{
    for (const known_partition &known : partitions_with(guid_bytes_of(guid))) {
        reading read = {any_dialect, known.node};
        read.told = std::string("its blocks in ") + (known.node == decimal ? "decimal" : "hexadecimal") +
                    ", as /dev/" + known.kernel_name + " has them";
        if (known.node == hexadecimal || known.node == decimal)
            return read;
    }
    return std::nullopt;
}

bool looks_decimal(std::string_view text)
{
    return number_in(text) && !has_prefix(text);
}

// Without letters in its digits the disks tell what it is, else the rest of the text.
std::vector<reading> read_old_hard_drive(const node_fields &fields)
{
    const auto &values = fields.values;
    const bytes hexadecimal = slice_node(hexadecimal_of(values[0], 4), &values[1], values[3], hexadecimal_of);
    const reading old = {of_old_efibootmgr, hexadecimal, {}, {}, false, "its blocks in hexadecimal"};
    if (!std::all_of(values.begin(), values.begin() + 3, looks_decimal))
        return {old};
    const bytes decimal = slice_node(sized_number(values[0], 4), &values[1], values[3], sized_number);
    if (const auto known = reading_on_disk(decimal, hexadecimal, values[3]))
        return {*known};
    return {old,
            {any_dialect & ~of_old_efibootmgr, decimal,
             "its blocks may be decimal or hexadecimal, and no disk of this machine has the partition"}};
}

// Today's tools print them in hexadecimal after 0x.
std::vector<reading> read_plain_blocks(const node_fields &fields)
{
    const auto &values = fields.values;
    if (!ovra::alike(values[1], "GPT") || !is_guid(values[2]) || !looks_decimal(values[3]) ||
        !looks_decimal(values[4]))
        return {};
    const uint64_t number = sized_number(values[0], 4); // which is decimal in any case
    const bytes decimal = slice_node(number, &values[3], values[2], sized_number);
    const bytes hexadecimal = slice_node(number, &values[3], values[2], hexadecimal_of);
    const auto known = reading_on_disk(decimal, hexadecimal, values[2]);
    return {known ? *known : reading{any_dialect, decimal, {}, {}, false, {}, "its blocks in decimal"}};
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
    if (fields.is("HD") && fields.count() == 4 && is_guid(fields.values[3]))
        return read_old_hard_drive(fields);
    if (fields.is("HD") && fields.count() == 5)
        return read_plain_blocks(fields);
    if (fields.name == "Vendor")
        return {{of_old_efibootmgr, {}, "an old efibootmgr prints three kinds of nodes so"}};
    for (const old_node &row : old_nodes) {
        if (fields.name == row.name)
            return read_numbers(row, fields);
    }
    return {};
}

} // namespace tool
