// SPDX-License-Identifier: MIT
// The table of keywords against the list in tests/data, which stored texts use. Keywords that come after them
// have a row in the golden tables instead.
#include <cctype>
#include <iterator>
#include <random>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "src/base/ascii.h"
#include "src/encode/table.h"
#include "tests/encode/encoding.h"
#include "tests/encode/positional.h"

using namespace ovra::test;

namespace {

std::string swap_case(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(islower(c) ? toupper(c) : tolower(c));
    return text;
}

} // namespace

TEST(encode_opt_table, rows_and_parameters_in_order)
{
    const std::vector<columns> expected = read_table("encode_keywords.tsv", 2);
    ASSERT_EQ(expected.size(), 69U);
    ASSERT_GE(std::size(encode_opt_table), expected.size());
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

// Names in another case, in another order, say the same as the positions.
TEST(encode_opt_table, positional_rows_encode_alike_when_named)
{
    std::set<std::string> found;
    for (const positional_row &row : positional_rows()) {
        found.insert(row.keyword);
        const uefi_encode_opt_t &opt = *row.opt;
        std::string arguments;
        size_t from = row.text.find('(') + 1;
        for (const char *const *name = opt.opt_param_list; *name && from < row.text.size(); ++name) {
            const size_t end = row.text.find_first_of(",)", from);
            ASSERT_NE(end, std::string::npos) << row.text;
            if (end != from) { // an empty field gives no argument
                const std::string argument = swap_case(*name) + "=" + row.text.substr(from, end - from);
                arguments = arguments.empty() ? argument : argument + "," + arguments;
            }
            from = end + 1;
        }
        EXPECT_EQ(from, row.text.size()) << row.text;
        const std::string text = swap_case(opt.opt_name) + "(" + arguments + ")";
        const encoding named = encode(text);
        EXPECT_EQ(named.said, "") << text;
        EXPECT_EQ(named.bytes, hex(row.bytes + end_entire)) << text;
    }
    EXPECT_GT(found.size(), 40U);
    for (size_t i = read_table("encode_keywords.tsv", 2).size(); i < std::size(encode_opt_table); ++i)
        EXPECT_EQ(found.count(encode_opt_table[i].opt_name), 1U)
            << encode_opt_table[i].opt_name << " has no row <keyword>_all_positional in an encode_*.tsv";
}

// As a walk through the table finds it.
TEST(find_keyword, is_the_first_row_of_a_keyword_in_any_case)
{
    const auto expect_as_in_a_walk = [](const std::string &keyword) {
        const uefi_encode_opt_t *expected = nullptr;
        for (const uefi_encode_opt_t &row : encode_opt_table) {
            if (!expected && ovra::alike(row.opt_name, keyword))
                expected = &row;
        }
        ASSERT_EQ(ovra::find_keyword(keyword), expected) << keyword;
    };
    std::mt19937 random(4); // NOLINT(cert-msc51-cpp): the same texts each time
    for (const uefi_encode_opt_t &row : encode_opt_table) {
        const std::string keyword = row.opt_name;
        ASSERT_EQ(ovra::find_keyword(swap_case(keyword)), &row) << keyword;
        for (size_t at = 0; at <= keyword.size(); ++at) {
            expect_as_in_a_walk(keyword.substr(0, at));
            expect_as_in_a_walk(keyword.substr(at));
            for (int i = 0; i < 20; ++i) {
                std::string other = keyword + "x";
                other[at] = static_cast<char>(1 + random() % 255);
                expect_as_in_a_walk(other);
                other.resize(keyword.size());
                expect_as_in_a_walk(other);
            }
        }
    }
    expect_as_in_a_walk("");
    expect_as_in_a_walk(std::string(100000, 'P'));
}

TEST(encode_opt_table, each_keyword_has_its_own_encoder)
{
    for (const uefi_encode_opt_t &one : encode_opt_table)
        for (const uefi_encode_opt_t &other : encode_opt_table)
            EXPECT_EQ(&one == &other, one.opt_encode_fcn == other.opt_encode_fcn)
                << one.opt_name << " " << other.opt_name;
}
