// SPDX-License-Identifier: MIT
#include <cstdint>

#include <gtest/gtest.h>

#include "src/base/whole_number.h"

TEST(whole_number, is_the_whole_text)
{
    EXPECT_EQ(ovra::whole_number<uint16_t>("0"), 0);
    EXPECT_EQ(ovra::whole_number<uint16_t>("007"), 7);
    EXPECT_EQ(ovra::whole_number<uint16_t>("fF", 16), 0xff);
    EXPECT_EQ(ovra::whole_number<uint16_t>({"12x", 2}), 12);
    for (const char *none : {"", " 1", "1 ", "+1", "0x1", "1x", "x", "-", "1.0", "1,000"})
        EXPECT_EQ(ovra::whole_number<uint16_t>(none), std::nullopt) << none;
    for (const char *none : {"0x1", "fg", "#"})
        EXPECT_EQ(ovra::whole_number<uint16_t>(none, 16), std::nullopt) << none;
    EXPECT_EQ(ovra::whole_number<uint16_t>({"1\0", 2}), std::nullopt);
    EXPECT_EQ(ovra::whole_number<uint16_t>({}), std::nullopt);
}

TEST(whole_number, fits_into_its_type)
{
    EXPECT_EQ(ovra::whole_number<uint16_t>("65535"), UINT16_MAX);
    EXPECT_EQ(ovra::whole_number<uint16_t>("65536"), std::nullopt);
    EXPECT_EQ(ovra::whole_number<uint64_t>("ffffffffffffffff", 16), UINT64_MAX);
    EXPECT_EQ(ovra::whole_number<uint64_t>("18446744073709551616"), std::nullopt);
    EXPECT_EQ(ovra::whole_number<int>("-1"), -1);
    EXPECT_EQ(ovra::whole_number<int>("-2147483648"), INT32_MIN);
    EXPECT_EQ(ovra::whole_number<int>("-2147483649"), std::nullopt);
    EXPECT_EQ(ovra::whole_number<int>("--1"), std::nullopt);
    EXPECT_EQ(ovra::whole_number<uint16_t>("-1"), std::nullopt);
}
