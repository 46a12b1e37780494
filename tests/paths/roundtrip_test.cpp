// SPDX-License-Identifier: MIT
#include <algorithm>
#include <set>
#include <strings.h>

#include <gtest/gtest.h>

#include "src/encode/encode.h"
#include "tests/paths/tables.h"

using namespace ovra::test;

namespace {

std::string keyword_of(const std::string &text)
{
    return text.substr(0, text.find('('));
}

} // namespace

TEST(roundtrip, table_has_every_keyword)
{
    std::set<std::string> keywords;
    std::set<std::string> texts;
    for (const auto &row : read_table("roundtrip.tsv")) {
        keywords.insert(keyword_of(row.at(0)));
        EXPECT_TRUE(texts.insert(row[0]).second) << row[0];
    }
    for (const uefi_encode_opt_t &row : encode_opt_table)
        EXPECT_EQ(keywords.count(row.opt_name), 1U) << row.opt_name;
    EXPECT_EQ(keywords.size(), std::size(encode_opt_table));
}

TEST(roundtrip, text_to_bytes_to_text_to_bytes_is_as_the_table_says)
{
    for (const auto &row : read_table("roundtrip.tsv")) {
        ASSERT_TRUE(row.size() == 4 || row.size() == 5) << row.at(0);
        const auto first = encode(row[0]);
        ASSERT_TRUE(first) << row[0];
        const auto printed = decode(*first);
        ASSERT_TRUE(printed) << row[0];
        ASSERT_EQ(printed->size(), 1U) << row[0];
        EXPECT_EQ(printed->front().device, row[1]);
        const auto second = encode(printed->front().device);
        const std::string outcome = !second ? "refused" : *second == *first ? "same" : "other";
        EXPECT_EQ(outcome, row[2]) << row[0];
        // What is not the same says why.
        EXPECT_EQ(outcome != "same", row[3] != "-") << row[0];
    }
}

TEST(roundtrip, what_was_printed_once_is_printed_alike_again)
{
    for (const auto &row : read_table("roundtrip.tsv")) {
        if (row.at(2) != "same")
            continue;
        const auto again = encode(row.at(1));
        ASSERT_TRUE(again) << row[1];
        EXPECT_EQ(decode(*again)->front().device, row[1]);
    }
}
