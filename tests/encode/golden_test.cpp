// SPDX-License-Identifier: MIT
// The tables tests/data/encode_*.tsv: each row a text, the bytes that it stands for, and what is said
// meanwhile.
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "tests/encode/encoding.h"
#include "tests/encode/table_file.h"

using namespace ovra::test;

namespace {

struct golden_row {
    std::string name;
    std::string text;
    std::string bytes; // "-": refused
    std::string messages;
};

void PrintTo(const golden_row &row, std::ostream *to)
{
    *to << row.text.substr(0, 200);
}

std::vector<golden_row> rows_of(const std::string &file)
{
    std::vector<golden_row> rows;
    for (const columns &row : read_table(file, 4))
        rows.push_back({row[0], unescape(row[1]), row[2], unescape(row[3])});
    return rows;
}

std::string name_of(const testing::TestParamInfo<golden_row> &info)
{
    return info.param.name;
}

class golden : public testing::TestWithParam<golden_row> {};

} // namespace

TEST_P(golden, row)
{
    const golden_row &row = GetParam();
    const encoding given = encode(row.text);
    if (row.bytes == "-")
        EXPECT_EQ(given.result, -1) << given.bytes;
    else
        EXPECT_EQ(given.bytes, hex(row.bytes + end_entire));
    EXPECT_EQ(given.said, row.messages);
}

#define GOLDEN_TABLE(table)                                                                                  \
    INSTANTIATE_TEST_SUITE_P(table, golden, testing::ValuesIn(rows_of("encode_" #table ".tsv")), name_of)
GOLDEN_TABLE(arguments);
GOLDEN_TABLE(path);
GOLDEN_TABLE(generic);
GOLDEN_TABLE(hardware);
GOLDEN_TABLE(acpi);
GOLDEN_TABLE(terminal);
GOLDEN_TABLE(disk);
GOLDEN_TABLE(sas);
GOLDEN_TABLE(usb);
GOLDEN_TABLE(network);
GOLDEN_TABLE(media);
