// SPDX-License-Identifier: MIT
// Paths and load options of real machines, in the dialects of several tools.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "src/dpath/dpath.h"
#include "src/dpath/list.h"
#include "tests/encode/encoding.h"
#include "tests/encode/table_file.h"

using namespace ovra::test;

namespace {

// Splits and joins again. The bytes up to the first END-entire are what a path is.
std::string again(const bytes &path, size_t *length)
{
    bytes copy = path;
    uefi_device_path_t **nodes = nullptr;
    if (device_path_unpack(copy.data(), static_cast<int>(copy.size()), &nodes) != 0)
        return "not unpacked";
    const ovra::node_list list(nodes);
    ovra_epath_t packed = nullptr;
    int size = 0;
    EXPECT_EQ(device_path_pack(nodes, &packed, &size), 0);
    const ovra::owned<uint8_t> given(packed);
    *length = static_cast<size_t>(size);
    return to_hex(packed, *length);
}

void expect_kept(const bytes &path)
{
    size_t length = 0;
    const std::string given = again(path, &length);
    ASSERT_LE(length, path.size());
    EXPECT_EQ(given, to_hex(path.data(), length));
    ASSERT_GE(length, 4U);
    EXPECT_EQ(to_hex(path.data() + length - 4, 4), end_entire);
}

} // namespace

TEST(real_paths, each_text_is_encoded_or_refused_as_recorded)
{
    size_t encoded = 0;
    size_t refused = 0;
    for (const columns &row : read_table("paths.tsv", 4)) {
        if (row[0] != "text")
            continue;
        SCOPED_TRACE(row[1]);
        const std::string message = unescape(row[3]);
        const encoding given = encode(row[1]);
        if (row[2] == "-") {
            ++refused;
            EXPECT_EQ(given.result, -1);
            ASSERT_NE(message, "");
            EXPECT_TRUE(given.said.starts_with(message)) << given.said;
            EXPECT_TRUE(given.said.ends_with("error with encode_uefipath\n")) << given.said;
        } else {
            ++encoded;
            EXPECT_EQ(given.bytes, hex(row[2]));
            EXPECT_EQ(given.said, message);
        }
    }
    EXPECT_EQ(encoded, 22U);
    EXPECT_EQ(refused, 125U);
}

TEST(real_paths, device_text_and_file_text)
{
    const std::vector<columns> rows = read_table("encode_files.tsv", 3);
    EXPECT_EQ(rows.size(), 73U);
    for (const columns &row : rows) {
        SCOPED_TRACE(row[0] + " " + row[1]);
        text_path path{text_path::with_file(row[0], row[1])};
        const encoding given = encode(path);
        EXPECT_EQ(given.bytes, hex(row[2]));
        EXPECT_EQ(given.said, "");
    }
}

TEST(real_paths, packed_paths_keep_their_bytes)
{
    size_t count = 0;
    for (const columns &row : read_table("paths.tsv", 2)) {
        if (row[0] != "hex")
            continue;
        ++count;
        SCOPED_TRACE(row[1]);
        expect_kept(from_hex(row[1]));
    }
    EXPECT_EQ(count, 135U);
}

TEST(real_options, paths_keep_their_bytes)
{
    size_t count = 0;
    for (const columns &row : read_table("options.tsv", 2)) {
        if (row[0] == "variable")
            continue;
        ++count;
        SCOPED_TRACE(row[0] + " " + row[1]);
        // Attributes (4 bytes), length of the path list (2), description in UCS-2 with a terminator, paths.
        const bytes option = from_hex(row[1]);
        ASSERT_GE(option.size(), 8U);
        const auto unit = [&](size_t at) {
            return static_cast<size_t>(option.at(at) | option.at(at + 1) << 8);
        };
        const size_t path_size = unit(4);
        size_t path = 6;
        while (unit(path) != 0)
            path += 2;
        path += 2;
        ASSERT_LE(path + path_size, option.size());
        const auto from = option.begin() + static_cast<ptrdiff_t>(path);
        expect_kept(bytes(from, from + static_cast<ptrdiff_t>(path_size)));
    }
    EXPECT_EQ(count, 69U);
}
