// SPDX-License-Identifier: MIT
// The table of keywords against the list in tests/data.
#include <iterator>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "src/encode/encode.h"
#include "tests/encode/table_file.h"

using namespace ovra::test;

TEST(encode_opt_table, rows_and_parameters_in_order)
{
    const std::vector<columns> expected = read_table("encode_keywords.tsv", 2);
    ASSERT_EQ(expected.size(), 69U);
    ASSERT_EQ(std::size(encode_opt_table), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        const uefi_encode_opt_t &row = encode_opt_table[i];
        EXPECT_EQ(row.opt_name, expected[i][0]);
        EXPECT_NE(row.opt_encode_fcn, nullptr);
        std::string parameters;
        if (!row.opt_param_list)
            parameters = "-";
        else
            for (const char *const *name = row.opt_param_list; *name; ++name)
                parameters.append(parameters.empty() ? "" : " ").append(*name);
        EXPECT_EQ(parameters, expected[i][1]) << row.opt_name;
    }
}

TEST(encode_opt_table, each_keyword_has_its_own_encoder)
{
    for (const uefi_encode_opt_t &one : encode_opt_table)
        for (const uefi_encode_opt_t &other : encode_opt_table)
            EXPECT_EQ(&one == &other, one.opt_encode_fcn == other.opt_encode_fcn)
                << one.opt_name << " " << other.opt_name;
}
