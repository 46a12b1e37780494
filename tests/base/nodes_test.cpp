// SPDX-License-Identifier: MIT
// Packed nodes, with every length that a node can claim and every length that is there.
#include <vector>

#include <gtest/gtest.h>

#include "src/base/nodes.h"

namespace {

using bytes = std::vector<uint8_t>;

bytes end_node()
{
    const ovra::byte_view end = ovra::bytes_of(ovra::end_entire);
    return {end.begin(), end.end()};
}

bytes joined(std::initializer_list<bytes> parts)
{
    bytes all;
    for (const bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

const bytes pci = {1, 1, 6, 0, 2, 31};

} // namespace

TEST(cursor, gives_each_node_and_then_none)
{
    const bytes packed = joined({pci, end_node()});
    ovra::cursor nodes{packed};
    const uefi_device_path_t *first = nodes.next();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(ovra::node_bytes(first).data(), packed.data());
    EXPECT_EQ(ovra::node_bytes(first).size(), pci.size());
    EXPECT_FALSE(ovra::is_end_entire(first));
    const uefi_device_path_t *second = nodes.next();
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(ovra::is_end_entire(second));
    EXPECT_TRUE(nodes.at_end());
    EXPECT_EQ(nodes.next(), nullptr);
    EXPECT_EQ(nodes.next(), nullptr);
}

TEST(cursor, every_claimed_length_in_every_length_there_is)
{
    for (size_t left = 0; left <= 12; ++left) {
        for (unsigned claimed = 0; claimed <= 14; ++claimed) {
            // A block of its own, so that a byte read beyond it is noticed.
            bytes packed(left, 0x5a);
            if (left > 2)
                packed[2] = static_cast<uint8_t>(claimed);
            if (left > 3)
                packed[3] = 0;
            ovra::cursor nodes{packed};
            EXPECT_EQ(nodes.at_end(), left == 0);
            EXPECT_EQ(nodes.header_cut_off(), left < 4);
            EXPECT_EQ(nodes.cut_off(), left < 4 || claimed > left) << left << " " << claimed;
            const uefi_device_path_t *node = nodes.next();
            ASSERT_EQ(node != nullptr, left >= 4 && claimed >= 4 && claimed <= left)
                << left << " " << claimed;
            EXPECT_EQ(nodes.rest.size(), node ? left - claimed : left); // one that is none is not passed over
        }
    }
}

TEST(cursor, largest_node)
{
    bytes packed(UINT16_MAX);
    packed[2] = packed[3] = 0xff;
    ovra::cursor nodes{packed};
    EXPECT_NE(nodes.next(), nullptr);
    EXPECT_TRUE(nodes.at_end());
    packed.pop_back();
    EXPECT_EQ(ovra::cursor{packed}.next(), nullptr);
}

TEST(cursor, path_without_an_end_ends_with_its_nodes)
{
    ovra::cursor nodes{pci};
    EXPECT_NE(nodes.next(), nullptr);
    EXPECT_TRUE(nodes.at_end());
    EXPECT_EQ(nodes.next(), nullptr);
}

TEST(cursor, nodes_stand_at_any_address)
{
    const bytes packed = joined({{0}, pci, end_node()});
    ovra::cursor nodes{ovra::byte_view(packed).subspan(1)};
    const auto *node = ovra::as<uefi_pci_device_path_t>(nodes.next());
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->device_number, 31);
    EXPECT_TRUE(ovra::is_end_entire(nodes.next()));
}

TEST(record, is_given_for_its_kind_in_its_whole_length_alone)
{
    EXPECT_NE(ovra::as<uefi_pci_device_path_t>(ovra::byte_view(pci)), nullptr);
    EXPECT_EQ(ovra::as<uefi_pci_device_path_t>(ovra::byte_view(pci).first(5)), nullptr); // cut off
    EXPECT_EQ(ovra::as<uefi_pci_device_path_t>(ovra::byte_view()), nullptr);
    EXPECT_EQ(ovra::as<uefi_ctrl_device_path_t>(ovra::byte_view(pci)), nullptr);
    EXPECT_EQ(ovra::as<uefi_acpi_device_path_t>(ovra::byte_view(pci)), nullptr);
    const bytes shorter = {1, 1, 5, 0, 2};
    EXPECT_EQ(ovra::as<uefi_pci_device_path_t>(ovra::byte_view(shorter)), nullptr);
    EXPECT_TRUE(ovra::is_kind<uefi_pci_device_path_t>(ovra::cursor{shorter}.next())); // which it says it is
    const bytes longer = {1, 1, 7, 0, 2, 31, 0};
    EXPECT_NE(ovra::as<uefi_pci_device_path_t>(ovra::byte_view(longer)), nullptr);
}

TEST(record, tail_goes_to_the_end_of_the_node)
{
    const bytes file = {4, 4, 8, 0, 'a', 0, 0, 0, 0x5a};
    const auto *node = ovra::as<uefi_file_path_t>(ovra::byte_view(file));
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(ovra::tail(*node).data(), file.data() + 4);
    EXPECT_EQ(ovra::tail(*node).size(), 4U);
    const bytes empty = {4, 4, 4, 0};
    EXPECT_TRUE(ovra::tail(*ovra::as<uefi_file_path_t>(ovra::byte_view(empty))).empty());
}

TEST(record, new_one_has_its_header_and_zeros)
{
    const auto node = ovra::new_record<uefi_sata_device_path_t>();
    EXPECT_EQ(node.type, UEFI_MESSAGING);
    EXPECT_EQ(node.subtype, 18);
    EXPECT_EQ(node.len, sizeof node);
    EXPECT_EQ(node.port | node.port_mult | node.lun, 0);
    EXPECT_EQ(end_node(), bytes({0x7f, 0xff, 4, 0}));
}

TEST(node_type, kept_zero_has_a_meaning_too)
{
    for (unsigned type = 0; type < 256; ++type)
        EXPECT_EQ(ovra::is_node_type(type), type <= 5 || type == 0x7f) << type;
    EXPECT_FALSE(ovra::is_node_type(0x100 + UEFI_MEDIA)); // no number is cut first
}

TEST(end_entire, is_told_from_the_end_of_an_instance)
{
    const uefi_device_path_t instance = {UEFI_END, UEFI_END_INSTANCE, 4};
    EXPECT_FALSE(ovra::is_end_entire(&instance));
    EXPECT_TRUE(ovra::is_end_entire(&ovra::end_entire));
    const uefi_device_path_t other = {UEFI_MEDIA, UEFI_END_ENTIRE, 4};
    EXPECT_FALSE(ovra::is_end_entire(&other));
}
