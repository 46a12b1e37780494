// SPDX-License-Identifier: MIT
#include "src/base/guid.h"
#include "src/base/hard_drive.h"
#include "src/print/print.h"
#include "src/print/rows.h"

using namespace ovra;

namespace {

void add_signature(text &to, const uefi_hard_drive_path_t &node)
{
    if (node.sig_type == signature_mbr)
        to.add("0x%08X", mbr_signature(node));
    else if (node.sig_type == signature_guid)
        to.put(guid_text(*guid_of(node.part_sig), letters::upper).view());
    else
        to.put("unknown_sig");
}

void print_hard_drive(const uefi_hard_drive_path_t &node, text &to)
{
    // Kept: the partition number is signed. [kept_hard_drive_partition_number_is_signed]
    to.add("%sHD(%d,", to.media_prefix(), static_cast<int32_t>(node.part_number));
    add_word(to, partition_formats, node.part_format);
    to.put(",");
    add_signature(to, node);
    if (node.part_number != 0) // 0 is the whole disk
        to.add(",0x%lx,0x%lx", node.part_start, node.part_size);
    to.put(")");
}

void print_file_path(const uefi_file_path_t &node, text &to)
{
    const std::span<const uint8_t> name = tail(node);
    char utf8[1023];
    to.put({utf8, convert_utf16_to_utf8(name.data(), name.size() / sizeof(uint16_t), utf8, sizeof utf8)});
}

constexpr printed media[] = {
    row<uefi_hard_drive_path_t, print_hard_drive>(),
    row<uefi_file_path_t, print_file_path>(),
};
static_assert(distinct_subtypes(media));

} // namespace

const printed_rows ovra::media_rows = media;
