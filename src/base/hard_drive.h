/* SPDX-License-Identifier: MIT */
/* Hard-drive nodes: what their codes mean, and which node stands for a slice or a partition. */
#ifndef SRC_BASE_HARD_DRIVE_H
#define SRC_BASE_HARD_DRIVE_H

#include <cstring>

#include "src/base/nodes.h"

namespace ovra {

enum partition_format : uint8_t { format_mbr = 1, format_gpt = 2 };
enum signature_type : uint8_t { signature_none = 0, signature_mbr = 1, signature_guid = 2 };

/* Where a volume lies on its disk, in logical blocks. */
struct extent {
    uint64_t start;
    uint64_t size;
};

/* The node of a slice of a GPT, "s0" and up. A `guid` of fewer bytes than a GUID has counts as none. */
inline uefi_hard_drive_path_t slice_node(uint32_t slice, extent where, byte_view guid)
{
    auto node = new_record<uefi_hard_drive_path_t>();
    node.part_number = slice + 1;
    node.part_start = where.start;
    node.part_size = where.size;
    node.part_format = format_gpt;
    if (guid.size() >= sizeof node.part_sig) {
        memcpy(node.part_sig, guid.data(), sizeof node.part_sig);
        node.sig_type = signature_guid;
    }
    return node;
}

/* Partitions 1 to 4 are those of the MBR itself; logical ones follow. */
inline constexpr uint32_t last_primary = 4;

/* The node of a partition of an MBR, "p1" and up, or "p0", which is the whole disk. */
inline uefi_hard_drive_path_t partition_node(uint32_t partition, extent where, uint32_t signature)
{
    // Kept: a logical partition is numbered like the whole disk; only the four primary ones have a number.
    // [kept_partitions_beyond_the_fourth_*, kept_logical_partition_is_numbered_like_the_whole_disk]
    auto node = new_record<uefi_hard_drive_path_t>();
    node.part_number = partition > last_primary ? 0 : partition;
    node.part_start = where.start;
    node.part_size = where.size;
    node.part_format = format_mbr;
    node.sig_type = signature_mbr;
    memcpy(node.part_sig, &signature, sizeof signature);
    return node;
}

/* The signature of an MBR in a node. */
inline uint32_t mbr_signature(const uefi_hard_drive_path_t &node)
{
    uint32_t signature = 0;
    memcpy(&signature, node.part_sig, sizeof signature);
    return signature;
}

} // namespace ovra

#endif
