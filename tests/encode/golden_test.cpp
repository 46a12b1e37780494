// SPDX-License-Identifier: MIT
// The tables tests/data/encode_*.tsv: each row a text, the bytes that it stands for, and what is said
// meanwhile.
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/encode/encoding.h"
#include "tests/encode/table_file.h"
#include "tests/support/rows.h"

using namespace ovra::test;

namespace {

struct golden_row {
    std::string name;
    std::string text;
    std::string bytes; // "-": refused
    std::string messages;
};

std::vector<golden_row> rows_of(const std::string &file)
{
    std::vector<golden_row> rows;
    for (const columns &row : read_table(file, 4))
        rows.push_back({row[0], unescape(row[1]), row[2], unescape(row[3])});
    return rows;
}

void check_row(testing::Test &, const golden_row &row)
{
    SCOPED_TRACE(row.text.substr(0, 200));
    const encoding given = encode(row.text);
    if (row.bytes == "-")
        EXPECT_EQ(given.result, -1) << given.bytes;
    else
        EXPECT_EQ(given.bytes, hex(row.bytes + end_entire));
    EXPECT_EQ(given.said, row.messages);
}

bool register_table(const std::string &name)
{
    static std::map<std::string, std::vector<golden_row>> tables;
    const auto &rows = tables[name] = rows_of("encode_" + name + ".tsv");
    return register_rows("golden_" + name, rows, check_row, __FILE__, __LINE__);
}

const bool tables_registered[] = {
    register_table("arguments"), register_table("path"),  register_table("generic"),
    register_table("hardware"),  register_table("acpi"),  register_table("terminal"),
    register_table("disk"),      register_table("sas"),   register_table("usb"),
    register_table("network"),   register_table("media"),
};

} // namespace
