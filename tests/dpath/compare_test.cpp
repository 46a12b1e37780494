// SPDX-License-Identifier: MIT
// When two nodes are the same device.
#include <random>

#include <gtest/gtest.h>

#include "tests/dpath/nodes.h"
#include "tests/support/messages.h"

using namespace ovra::test;

namespace {

constexpr char trace[] = "Making a matched based on Pcieroot == Pciroot\n";

int compare(const node &a, const node &b)
{
    return compare_dpath_nodes(a.get(), b.get());
}

int compare(const char *a, const char *b)
{
    return compare(node_of(a), node_of(b));
}

// An ACPI node: identifier and unit.
node acpi(uint32_t hid, uint32_t uid)
{
    bytes content = from_hex("0201 0c00 00000000 00000000");
    memcpy(content.data() + 4, &hid, sizeof hid);
    memcpy(content.data() + 8, &uid, sizeof uid);
    return node_of(content);
}

constexpr uint32_t pci_root = 0x0a0341d0;
constexpr uint32_t pcie_root = 0x0a0841d0;

} // namespace

TEST(compare, nodes_alike_in_every_byte_match_without_a_trace)
{
    const messages said;
    EXPECT_EQ(compare("01010600 0302", "01010600 0302"), 0);
    EXPECT_EQ(compare("7fff0400", "7fff0400"), 0);
    EXPECT_EQ(compare(acpi(pci_root, 1), acpi(pci_root, 1)), 0);
    EXPECT_EQ(compare(node_of(node_bytes(4, 4, 65535)), node_of(node_bytes(4, 4, 65535))), 0);
    EXPECT_EQ(said.text(), "");
    const node same = acpi(pci_root, 0);
    EXPECT_EQ(compare(same, same), 0);
}

TEST(compare, nodes_of_different_lengths_never_match)
{
    EXPECT_EQ(compare("01010600 0302", "01010500 03"), -1);
    EXPECT_EQ(compare("0201 0c00 d041030a 00000000", "0201 0d00 d041030a 00000000 00"), -1);
}

TEST(compare, one_byte_apart_does_not_match)
{
    const bytes original = node_bytes(4, 1, 42);
    for (size_t i = 0; i < original.size(); ++i) {
        if (i == 2 || i == 3)
            continue; // the length
        bytes changed = original;
        changed[i] ^= 1;
        EXPECT_EQ(compare(node_of(original), node_of(changed)), -1) << i;
    }
    bytes last = node_bytes(4, 4, 65535);
    last.back() ^= 1;
    EXPECT_EQ(compare(node_of(node_bytes(4, 4, 65535)), node_of(last)), -1);
}

TEST(compare, kept_wording_of_the_trace_of_root_bridges)
{
    for (const int debug : {1, 0}) {
        const messages said(1, debug);
        EXPECT_EQ(compare(acpi(pci_root, 0), acpi(pcie_root, 1)), 0);
        EXPECT_EQ(said.text(), debug == 1 ? trace : "");
    }
}

TEST(compare, trace_does_not_belong_to_the_error_switch)
{
    const messages said(1, 0);
    EXPECT_EQ(compare(acpi(pcie_root, 0), acpi(pci_root, 0)), 0);
    EXPECT_EQ(said.text(), "");
}

TEST(compare, root_bridges_match_in_either_combination)
{
    for (const uint32_t a : {pci_root, pcie_root})
        for (const uint32_t b : {pci_root, pcie_root}) {
            messages said(0, 1);
            EXPECT_EQ(compare(acpi(a, 3), acpi(b, 3)), 0);
            EXPECT_EQ(said.take(), a == b ? "" : trace);
            EXPECT_EQ(compare(acpi(a, 3), acpi(b, 4)), 0);
            EXPECT_EQ(said.take(), trace);
        }
}

TEST(compare, kept_uid_of_root_bridges_does_not_count)
{
    for (const uint32_t uid : {1U, 0x100U, 0x80000000U, 0xffffffffU})
        EXPECT_EQ(compare(acpi(pci_root, 0), acpi(pci_root, uid)), 0) << uid;
}

TEST(compare, kept_of_the_vendor_of_root_bridges_only_the_lowest_byte_counts)
{
    EXPECT_EQ(compare(acpi(0x0a0341d0, 0), acpi(0x0a0342d0, 0)), 0);
    EXPECT_EQ(compare(acpi(0x0a03ffd0, 0), acpi(0x0a0800d0, 0)), 0);
    EXPECT_EQ(compare(acpi(0x0a034141, 0), acpi(0x0a084241, 9)), 0); // of any vendor
    EXPECT_EQ(compare(acpi(0x0a0341d0, 0), acpi(0x0a0341d1, 0)), -1);
    EXPECT_EQ(compare(acpi(0x0a0341d0, 0), acpi(0x0a084150, 0)), -1);
}

TEST(compare, other_acpi_devices_match_only_in_every_byte)
{
    const messages said;
    EXPECT_EQ(compare(acpi(0x050141d0, 0), acpi(0x050141d0, 1)), -1);
    EXPECT_EQ(compare(acpi(0x0a0541d0, 0), acpi(0x0a0541d0, 1)), -1);
    EXPECT_EQ(compare(acpi(pci_root, 0), acpi(0x0a0441d0, 0)), -1);
    EXPECT_EQ(compare(acpi(0x0a0441d0, 0), acpi(pci_root, 0)), -1);
    EXPECT_EQ(compare(acpi(0x030a41d0, 0), acpi(0x030a41d0, 1)), -1); // the halves the wrong way round
    EXPECT_EQ(said.text(), "");
}

TEST(compare, bytes_of_a_root_bridge_in_a_node_of_another_kind_do_not_match)
{
    EXPECT_EQ(compare("0202 0c00 d041030a 00000000", "0202 0c00 d041080a 00000000"), -1);
    EXPECT_EQ(compare("0101 0c00 d041030a 00000000", "0101 0c00 d041080a 00000000"), -1);
    EXPECT_EQ(compare("0201 0c00 d041030a 00000000", "0202 0c00 d041030a 00000000"), -1);
    EXPECT_EQ(compare("0101 0c00 d041030a 00000000", "0201 0c00 d041030a 00000000"), -1);
}

// Blocks as long as the nodes claim to be: reading the identifier beyond them would be seen.
TEST(compare, acpi_nodes_too_short_for_an_identifier_do_not_match)
{
    EXPECT_EQ(compare("0201 0600 d041", "0201 0600 d042"), -1);
    EXPECT_EQ(compare("0201 0800 d041030a", "0201 0800 d041080a"), -1);
    EXPECT_EQ(compare("0201 0b00 d041030a 000000", "0201 0b00 d041080a 000000"), -1);
    EXPECT_EQ(compare("0201 0500 00", "0201 0500 01"), -1);
}

TEST(compare, root_bridges_longer_than_their_record_match)
{
    EXPECT_EQ(compare("0201 0e00 d041030a 00000000 aabb", "0201 0e00 d041080a 00000000 ccdd"), 0);
}

TEST(compare, nodes_may_stand_at_odd_addresses)
{
    std::vector<uint8_t> first(13);
    std::vector<uint8_t> second(15);
    memcpy(first.data() + 1, acpi(pci_root, 0).get(), 12);
    memcpy(second.data() + 3, acpi(pcie_root, 1).get(), 12);
    EXPECT_EQ(compare_dpath_nodes(reinterpret_cast<uefi_device_path_t *>(first.data() + 1),
                                  reinterpret_cast<uefi_device_path_t *>(second.data() + 3)),
              0);
}

TEST(compare, is_the_same_both_ways_and_follows_the_rule)
{
    std::mt19937 random(6);
    const messages said(0, 0);
    const uint16_t products[] = {0x0a03, 0x0a08, 0x0a05, 0x0604};
    const uint16_t vendors[] = {0x41d0, 0x42d0, 0x41d1};
    int matches = 0;
    for (int round = 0; round < 20000; ++round) {
        const auto any_hid = [&] {
            return static_cast<uint32_t>(products[random() % 4]) << 16 | vendors[random() % 3];
        };
        const uint32_t hid_a = any_hid();
        const uint32_t hid_b = any_hid();
        const auto uid_a = static_cast<uint32_t>(random() % 2);
        const auto uid_b = static_cast<uint32_t>(random() % 2);
        const auto root = [](uint32_t hid) { return hid >> 16 == 0x0a03 || hid >> 16 == 0x0a08; };
        const bool match = (hid_a == hid_b && uid_a == uid_b) ||
                           (root(hid_a) && root(hid_b) && (hid_a & 0xff) == (hid_b & 0xff));
        const node a = acpi(hid_a, uid_a);
        const node b = acpi(hid_b, uid_b);
        ASSERT_EQ(compare(a, b), match ? 0 : -1) << std::hex << hid_a << " " << hid_b;
        ASSERT_EQ(compare(b, a), match ? 0 : -1) << std::hex << hid_a << " " << hid_b;
        matches += match;
    }
    EXPECT_GT(matches, 1000);
}
