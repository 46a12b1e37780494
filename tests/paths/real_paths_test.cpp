// SPDX-License-Identifier: MIT
#include <algorithm>

#include <gtest/gtest.h>

#include "src/dpath/dpath.h"
#include "src/dpath/list.h"
#include "tests/paths/tables.h"

using namespace ovra::test;

namespace {

// What the table says of a path: pairs of device text and file text.
std::vector<instance> expected_instances(const std::vector<std::string> &row)
{
    std::vector<instance> instances;
    for (size_t i = 1; i + 1 < row.size(); i += 2) {
        instances.push_back({row[i], std::nullopt});
        if (row[i + 1] != "-")
            instances.back().file = row[i + 1];
    }
    return instances;
}

} // namespace

TEST(real_paths, table_has_every_packed_path_of_real_machines)
{
    const auto table = read_table("decoded.tsv");
    size_t packed = 0;
    for (const auto &row : read_table("paths.tsv")) {
        if (row.at(0) != "hex")
            continue;
        ++packed;
        EXPECT_TRUE(std::any_of(table.begin(), table.end(), [&](const auto &known) {
            return known[0] == row.at(1);
        })) << row[1];
    }
    EXPECT_EQ(packed, 135U);
}

TEST(real_paths, print_as_they_were_reviewed)
{
    for (const auto &row : read_table("decoded.tsv")) {
        const auto found = decode(from_hex(row.at(0)));
        if (row.at(1) == "!refused") {
            EXPECT_FALSE(found) << row[0];
            continue;
        }
        ASSERT_TRUE(found) << row[0];
        EXPECT_EQ(*found, expected_instances(row)) << row[0];
    }
}

TEST(real_paths, unpack_and_pack_to_the_same_bytes_up_to_their_end)
{
    for (const auto &row : read_table("decoded.tsv")) {
        bytes path = from_hex(row.at(0));
        uefi_device_path_t **nodes = nullptr;
        if (device_path_unpack(path.data(), static_cast<int>(path.size()), &nodes) != 0) {
            EXPECT_EQ(row.at(1), "!refused");
            continue;
        }
        const ovra::node_list list(nodes);
        ovra_epath_t packed = nullptr;
        int length = 0;
        ASSERT_EQ(device_path_pack(list.get(), &packed, &length), 0);
        const ovra::owned<uint8_t> owner(packed);
        ASSERT_LE(static_cast<size_t>(length), path.size());
        EXPECT_EQ(to_hex(packed, static_cast<size_t>(length)),
                  to_hex(path.data(), static_cast<size_t>(length)));
    }
}

TEST(real_paths, cut_at_every_byte_never_read_beyond)
{
    for (const auto &row : read_table("decoded.tsv")) {
        const bytes path = from_hex(row.at(0));
        // A block of exactly the cut size, so that a sanitizer sees what is read behind it.
        for (size_t size = 1; size < path.size(); ++size) {
            const auto found = decode(bytes(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(size)));
            if (found) {
                EXPECT_LE(found->size(), path.size() / 4);
            }
        }
    }
}
