// SPDX-License-Identifier: MIT
// Hard-drive nodes against their bytes.
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

#include "src/base/hard_drive.h"

namespace {

using bytes = std::vector<uint8_t>;

bytes stored(const uefi_hard_drive_path_t &node)
{
    const ovra::byte_view view = ovra::bytes_of(node);
    return {view.begin(), view.end()};
}

bytes counted(size_t size)
{
    bytes all(size);
    std::iota(all.begin(), all.end(), uint8_t{1});
    return all;
}

} // namespace

TEST(hard_drive, slice_has_the_number_of_its_entry_and_its_guid)
{
    const bytes guid = counted(16);
    const bytes expected = {4, 1, 42, 0, 3, 0, 0, 0, 0, 8, 0, 0, 0,  0,  0,  0,  0,  0,  0x10, 0, 0,
                            0, 0, 0,  1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16,   2, 2};
    EXPECT_EQ(stored(ovra::slice_node(2, {0x800, 0x100000}, guid)), expected);
}

TEST(hard_drive, slice_with_fewer_bytes_than_a_guid_has_no_signature)
{
    for (size_t size = 0; size < 16; ++size) {
        const bytes guid = counted(size);
        const uefi_hard_drive_path_t node = ovra::slice_node(0, {1, 2}, guid);
        EXPECT_EQ(node.sig_type, ovra::signature_none) << size;
        EXPECT_EQ(node.part_format, ovra::format_gpt) << size;
        EXPECT_EQ(bytes(std::begin(node.part_sig), std::end(node.part_sig)), bytes(16)) << size;
    }
    const bytes longer = counted(20);
    EXPECT_EQ(stored(ovra::slice_node(0, {1, 2}, longer)), stored(ovra::slice_node(0, {1, 2}, counted(16))));
}

TEST(hard_drive, partition_has_the_signature_of_its_table)
{
    const bytes expected = {4, 1, 42, 0,    1,    0,    0,    0, 63, 0, 0, 0, 0, 0, 0, 0, 0xff, 0, 0, 0, 0,
                            0, 0, 0,  0x78, 0x56, 0x34, 0x12, 0, 0,  0, 0, 0, 0, 0, 0, 0, 0,    0, 0, 1, 1};
    const uefi_hard_drive_path_t node = ovra::partition_node(1, {63, 255}, 0x12345678);
    EXPECT_EQ(stored(node), expected);
    EXPECT_EQ(ovra::mbr_signature(node), 0x12345678U);
}

TEST(hard_drive, kept_logical_partition_is_numbered_like_the_whole_disk)
{
    for (uint32_t number = 0; number < 10; ++number)
        EXPECT_EQ(ovra::partition_node(number, {0, 1}, 0).part_number, number > 4 ? 0 : number);
    EXPECT_EQ(ovra::partition_node(UINT32_MAX, {0, 1}, 0).part_number, 0U);
}
