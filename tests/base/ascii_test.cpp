// SPDX-License-Identifier: MIT
// Letters, digits and blanks, byte by byte against the C library in its own locale.
#include <cctype>
#include <clocale>
#include <cstring>
#include <strings.h>

#include <gtest/gtest.h>

#include "src/base/ascii.h"

TEST(ascii, every_byte_is_what_the_c_locale_says)
{
    ASSERT_STREQ(setlocale(LC_ALL, nullptr), "C");
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        EXPECT_EQ(ovra::is_ascii_space(c), isspace(i) != 0) << i;
        EXPECT_EQ(ovra::is_ascii_digit(c), isdigit(i) != 0) << i;
        EXPECT_EQ(ovra::ascii_lower(c), static_cast<char>(tolower(i))) << i;
    }
}

TEST(alike, every_pair_of_bytes_is_what_the_c_locale_says)
{
    for (int a = 0; a < 256; ++a) {
        for (int b = 0; b < 256; ++b) {
            const char left[] = {'x', static_cast<char>(a), 'y', '\0'};
            const char right[] = {'X', static_cast<char>(b), 'Y', '\0'};
            const bool expected = strcasecmp(left, right) == 0;
            ASSERT_EQ(ovra::alike(left, right), expected) << a << " " << b;
            // With their lengths, a terminator is a character like others.
            const std::string_view whole_left(left, 3);
            ASSERT_EQ(ovra::alike(whole_left, std::string_view(right, 3)),
                      a == 0 || b == 0 ? a == b : expected)
                << a << " " << b;
        }
    }
}

TEST(alike, texts_of_different_lengths_are_not)
{
    EXPECT_TRUE(ovra::alike("", ""));
    EXPECT_FALSE(ovra::alike("Pci", "PciRoot"));
    EXPECT_FALSE(ovra::alike("PciRoot", "Pci"));
    EXPECT_FALSE(ovra::alike("", "a"));
    EXPECT_FALSE(ovra::alike("a", ""));
    EXPECT_TRUE(ovra::alike("pCIrOOT", "PciRoot"));
    using namespace std::string_view_literals;
    EXPECT_FALSE(ovra::alike("Pci"sv, "PciRoot"sv));
    EXPECT_FALSE(ovra::alike("PciRoot"sv, "Pci"sv));
    EXPECT_TRUE(ovra::alike("pCIrOOT"sv, "PciRoot"sv));
    EXPECT_TRUE(ovra::alike("PciRoot(0)"sv.substr(0, 7), "pciroot"));
}

TEST(behind_prefix, is_the_rest_of_a_text_that_begins_so)
{
    EXPECT_STREQ(ovra::behind_prefix("boot0001", "Boot"), "0001");
    EXPECT_STREQ(ovra::behind_prefix("BOOT", "Boot"), "");
    EXPECT_STREQ(ovra::behind_prefix("x", ""), "x");
    EXPECT_EQ(ovra::behind_prefix("Boo", "Boot"), nullptr);
    EXPECT_EQ(ovra::behind_prefix("", "Boot"), nullptr);
    EXPECT_EQ(ovra::behind_prefix("B\xc3\x96OT", "Boot"), nullptr);
}
