// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "platform/machine/eficlock.h"
#include "tests/platform/efi_times.h"

using machine::is_reached;
using machine::seconds_of;
using machine::time_of;
using platform_test::at;

namespace {

EFI_TIME in_zone(EFI_TIME time, int timezone)
{
    time.timezone = static_cast<int16_t>(timezone);
    return time;
}

TEST(efi_time, is_seconds_since_1970)
{
    EXPECT_EQ(seconds_of(at(1970, 1, 1)), 0);
    EXPECT_EQ(seconds_of(at(2000, 2, 29, 12, 34, 56)), 951827696);
    EXPECT_EQ(seconds_of(at(1900, 1, 1)), -2208988800);
    EXPECT_EQ(seconds_of(at(9999, 12, 31, 23, 59, 59)), 253402300799);
}

TEST(efi_time, goes_both_ways_over_all_years)
{
    for (std::int64_t seconds = -2208988800; seconds <= 253402300799; seconds += 86399 * 97) {
        auto time = time_of(seconds, 999999999);
        ASSERT_TRUE(time);
        ASSERT_EQ(seconds_of(*time), seconds);
    }
}

TEST(efi_time, ends_with_the_years_that_uefi_allows)
{
    EXPECT_TRUE(time_of(-2208988800, 0));
    EXPECT_FALSE(time_of(-2208988801, 0));
    EXPECT_TRUE(time_of(253402300799, 0));
    EXPECT_FALSE(time_of(253402300800, 0));
    EXPECT_FALSE(time_of(INT64_MAX, 0));
    EXPECT_FALSE(time_of(INT64_MIN, 0));
    EXPECT_FALSE(time_of(0, 1000000000));
}

TEST(efi_time, field_outside_its_range_is_refused)
{
    for (const EFI_TIME &bad :
         {at(1899, 12, 31), at(10000, 1, 1), at(2024, 0, 1), at(2024, 13, 1), at(2024, 1, 0), at(2024, 1, 32),
          at(2024, 4, 31), at(2023, 2, 29), at(1900, 2, 29), at(2024, 1, 1, 24), at(2024, 1, 1, 0, 60),
          at(2024, 1, 1, 0, 0, 60)})
        EXPECT_FALSE(seconds_of(bad)) << bad.year << '-' << int{bad.month} << '-' << int{bad.day};
    EXPECT_TRUE(seconds_of(at(2024, 2, 29)));
    EXPECT_TRUE(seconds_of(at(2000, 2, 29)));

    EFI_TIME time = at(2024, 1, 1);
    time.nanosecond = 999999999;
    EXPECT_TRUE(seconds_of(time));
    time.nanosecond = 1000000000;
    EXPECT_FALSE(seconds_of(time));
}

TEST(efi_time, time_zone_is_within_a_day_or_not_given)
{
    for (int zone : {-1440, 0, 1440, 0x7ff})
        EXPECT_TRUE(seconds_of(in_zone(at(2024, 1, 1), zone))) << zone;
    for (int zone : {-1441, 1441, 0x7fe, 0x800, -32768})
        EXPECT_FALSE(seconds_of(in_zone(at(2024, 1, 1), zone))) << zone;
}

TEST(efi_time, daylight_has_two_bits)
{
    EFI_TIME time = at(2024, 1, 1);
    time.daylight = 3;
    EXPECT_TRUE(seconds_of(time));
    time.daylight = 4;
    EXPECT_FALSE(seconds_of(time));
}

TEST(efi_time, padding_is_not_looked_at)
{
    EFI_TIME time = at(2024, 1, 1);
    time.pad1 = time.pad2 = 0xff;
    EXPECT_TRUE(seconds_of(time));
}

TEST(efi_alarm, is_reached_at_its_own_nanosecond)
{
    EFI_TIME now = at(2024, 1, 1, 12);
    now.nanosecond = 5;
    EFI_TIME alarm = now;
    EXPECT_TRUE(is_reached(alarm, now));
    alarm.nanosecond = 6;
    EXPECT_FALSE(is_reached(alarm, now));
    EXPECT_TRUE(is_reached(at(2024, 1, 1, 11, 59, 59), now));
    EXPECT_FALSE(is_reached(at(2024, 1, 1, 12, 0, 1), now));
}

TEST(efi_alarm, zones_are_compared_as_utc)
{
    // Local time = UTC - time zone: one hour ahead of UTC the clock shows 13:00 at 12:00 UTC.
    EFI_TIME now = at(2024, 1, 1, 12);
    EXPECT_TRUE(is_reached(in_zone(at(2024, 1, 1, 13), -60), now));
    EXPECT_FALSE(is_reached(in_zone(at(2024, 1, 1, 13, 0, 1), -60), now));
    EXPECT_FALSE(is_reached(in_zone(at(2024, 1, 1, 12), 60), now));
}

TEST(efi_alarm, without_a_zone_the_fields_are_compared)
{
    EXPECT_TRUE(is_reached(in_zone(at(2024, 1, 1, 12), 0x7ff), in_zone(at(2024, 1, 1, 12), -60)));
    EXPECT_FALSE(is_reached(in_zone(at(2024, 1, 1, 12, 1), 0x7ff), in_zone(at(2024, 1, 1, 12), -60)));
}

TEST(efi_alarm, bad_time_is_never_reached)
{
    EXPECT_FALSE(is_reached(at(0, 0, 0), at(2024, 1, 1)));
    EXPECT_FALSE(is_reached(at(2024, 1, 1), at(0, 0, 0)));
}

} // namespace
