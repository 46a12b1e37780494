// SPDX-License-Identifier: MIT
#include <algorithm>

#include "src/base/hard_drive.h"
#include "src/encode/fields.h"
#include "src/encode/vendor.h"

using namespace ovra;

namespace {

// Type: how the partition is described. Kept: the number form leaves the format unset. [kept_hd_type_*]
bool get_partition_type(uefi_arg_list_t *args, uint8_t *part_format, uint8_t *sig_type)
{
    const char *text = ovra_get_arg(args, "Type");
    if (const word *word = by_text(partition_formats, text ? text : "GPT")) {
        *part_format = static_cast<uint8_t>(word->value);
        *sig_type = *part_format;
        return true;
    }
    if (!require(args, "Type", sig_type))
        return false;
    if (*sig_type > signature_guid)
        return refuse("sig_type out of range\n");
    return true;
}

// Start and Size: required for a partition, prohibited for the whole disk. Kept: one that cannot be read is
// passed over for the whole disk, with the getter's message. [kept_hd_whole_disk_*]
bool get_extent(uefi_arg_list_t *args, const char *name, uint32_t partition, const char *prohibited,
                uint64_t *blocks)
{
    if (!require(args, name, blocks))
        return partition == 0;
    if (partition == 0)
        return refuse(prohibited);
    return true;
}

bool get_signature(uefi_arg_list_t *args, uint8_t sig_type, uint8_t (&part_sig)[16])
{
    if (sig_type == signature_mbr) {
        uint32_t signature = 0;
        if (!require(args, "Signature", &signature))
            return false;
        memcpy(part_sig, &signature, sizeof signature);
        return true;
    }
    EFI_GUID guid = {};
    if (!require(args, "Signature", &guid))
        return false;
    memcpy(part_sig, &guid, sizeof guid);
    const auto is_zero = [](uint8_t byte) { return byte == 0; };
    if (sig_type == signature_none && !std::all_of(std::begin(part_sig), std::end(part_sig), is_zero))
        return refuse("Signature must be 0 when type is 0\n");
    return true;
}

} // namespace

int encode_hd(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    auto node = new_node<uefi_hard_drive_path_t>();
    if (!node)
        return fail("unable to allocate hd_dpath\n");
    uint32_t partition = 0;
    uint64_t start = 0;
    uint64_t size = 0;
    if (!get_if_given(args, "Partition", &partition) ||
        !get_partition_type(args, &node->part_format, &node->sig_type) ||
        !get_extent(args, "Start", partition, "'Start' prohibited for partition 0\n", &start) ||
        !get_extent(args, "Size", partition, "'Size' prohibited for partition 0\n", &size) ||
        !get_signature(args, node->sig_type, node->part_sig))
        return -1;
    node->part_number = partition;
    node->part_start = start;
    node->part_size = size;
    return hand_over(std::move(node), out);
}

int encode_cdrom(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    auto node = new_node<uefi_cdrom_path_t>();
    if (!node)
        return fail("unable to allocate cdrom dpath\n");
    // Kept: Entry is read under a name that the keyword does not have: only entry 0 can be encoded.
    // [kept_cdrom_*]
    uint32_t boot_entry = 0;
    if (is_given(args, "Entry") && !require(args, "VlanId", &boot_entry))
        return -1;
    node->boot_entry = boot_entry;
    uint64_t start = 0;
    uint64_t size = 0;
    if (!is_given(args, "Start"))
        return fail("Start is a required argument\n");
    if (!require(args, "Start", &start))
        return -1;
    if (!is_given(args, "Size"))
        return fail("Size is a required argument\n");
    if (!require(args, "Size", &size))
        return -1;
    node->part_start = start;
    node->part_size = size;
    return hand_over(std::move(node), out);
}

int encode_venmedia(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    // Kept: the data of this kind alone has a limit. [kept_venmedia_1027_bytes_of_data_are_refused]
    constexpr size_t data_limit = 1026;
    hex_bytes data;
    if (is_given(args, "Data") && !require_hex(args, "Data", 1, data_limit, &data))
        return -1;
    auto node = new_node<uefi_venmedia_path_t>(data.size);
    if (!node)
        return fail("unable to allocate venmedia dpath\n");
    if (data.size != 0)
        memcpy(node->data, data.bytes.get(), data.size);
    EFI_GUID guid = {};
    if (!require(args, "GUID", &guid))
        return -1;
    node->guid = guid;
    return hand_over(std::move(node), out);
}

int encode_media(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    using rec = uefi_media_protocol_path_t;
    static constexpr field fields[] = {
        need_guid("GUID", AT(guid)),
    };
    return encode_fields<rec>(args, out, fields, "unable to allocate media_protocol path\n");
}

int encode_offset(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    using rec = uefi_offset_path_t;
    static constexpr field fields[] = {
        need("StartingOffset", AT(start)),
        need("EndingOffset", AT(end)),
    };
    // Kept: the message is that of Media. [kept_offset_speaks_of_media]
    return encode_fields<rec>(args, out, fields, "unable to allocate media_protocol path\n");
}
