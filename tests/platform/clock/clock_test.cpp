// SPDX-License-Identifier: MIT
#include <cstring>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "tests/platform/devns_calls.h"
#include "tests/platform/efi_times.h"

using platform_test::at;
using platform_test::device;
using platform_test::machine_folder;
using platform_test::not_answered;
namespace fs = std::filesystem;

namespace {

std::time_t seconds_of(const EFI_TIME &time)
{
    std::tm fields = {};
    fields.tm_year = time.year - 1900;
    fields.tm_mon = time.month - 1;
    fields.tm_mday = time.day;
    fields.tm_hour = time.hour;
    fields.tm_min = time.minute;
    fields.tm_sec = time.second;
    return timegm(&fields);
}

class stored_clock : public testing::Test {
protected:
    machine_folder disk;
    device opened;

    EFI_STATUS get(EFI_TIME *time, EFI_TIME_CAPABILITIES *capabilities = nullptr) const
    {
        EFI_STATUS status = not_answered;
        ovra_get_time_args_t args = {time, capabilities, &status};
        return devns_ioctl(opened.fd(), OVRA_GET_TIME, &args) == 0 ? status : not_answered;
    }
    [[nodiscard]] EFI_STATUS set(EFI_TIME time) const
    {
        EFI_STATUS status = not_answered;
        ovra_set_time_args_t args = {&time, &status};
        return devns_ioctl(opened.fd(), OVRA_SET_TIME, &args) == 0 ? status : not_answered;
    }
    void expect_host_time() const
    {
        EFI_TIME time = {};
        std::time_t before = std::time(nullptr);
        ASSERT_EQ(get(&time), EFI_SUCCESS);
        EXPECT_GE(seconds_of(time), before);
        EXPECT_LE(seconds_of(time), std::time(nullptr) + 1);
        EXPECT_EQ(time.timezone, 0);
        EXPECT_EQ(time.daylight, 0);
    }

    struct alarm {
        BOOLEAN enabled = B_TRUE;
        BOOLEAN pending = B_TRUE;
        EFI_TIME time = {};
    };
    [[nodiscard]] alarm wakeup(EFI_STATUS expected = EFI_SUCCESS) const
    {
        alarm found;
        EFI_STATUS status = not_answered;
        ovra_get_wakeup_time_args_t args = {&found.enabled, &found.pending, &found.time, &status};
        EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_GET_WAKEUP_TIME, &args), 0);
        EXPECT_EQ(status, expected);
        return found;
    }
    EFI_STATUS set_wakeup(BOOLEAN enable, EFI_TIME *time) const
    {
        EFI_STATUS status = not_answered;
        ovra_set_wakeup_time_args_t args = {time, &status, enable};
        return devns_ioctl(opened.fd(), OVRA_SET_WAKEUP_TIME, &args) == 0 ? status : not_answered;
    }
    UINT32 count(EFI_STATUS *answer = nullptr) const
    {
        UINT32 next = 0xdead;
        EFI_STATUS status = not_answered;
        ovra_get_next_high_monotonic_count_args_t args = {&next, &status};
        EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args), 0);
        EXPECT_EQ(answer != nullptr ? EFI_SUCCESS : status, EFI_SUCCESS);
        if (answer != nullptr)
            *answer = status;
        return next;
    }
};

using machine_time = stored_clock;
using wakeup_alarm = stored_clock;
using monotonic_count = stored_clock;

TEST_F(machine_time, is_the_hosts_in_utc_until_it_is_set)
{
    expect_host_time();
    EXPECT_FALSE(fs::exists(disk.root() / "var"));
}

TEST_F(machine_time, capabilities_are_filled_when_asked_for)
{
    EFI_TIME time = {};
    EFI_TIME_CAPABILITIES capabilities = {0, 0, 9};
    ASSERT_EQ(get(&time, &capabilities), EFI_SUCCESS);
    EXPECT_EQ(capabilities.resolution, 1000000000u);
    EXPECT_EQ(capabilities.accuracy, 50000000u);
    EXPECT_EQ(capabilities.sets_to_zero, 0);
}

TEST_F(machine_time, that_is_set_goes_on_from_there)
{
    for (const EFI_TIME &wanted : {at(1900, 1, 1), at(1999, 12, 31, 23, 59, 58), at(2024, 2, 29, 12, 0, 0),
                                   at(9999, 12, 31, 0, 0, 0)}) {
        ASSERT_EQ(set(wanted), EFI_SUCCESS);
        EFI_TIME time = {};
        ASSERT_EQ(get(&time), EFI_SUCCESS);
        EXPECT_GE(seconds_of(time), seconds_of(wanted));
        EXPECT_LE(seconds_of(time), seconds_of(wanted) + 5);
    }
}

TEST_F(machine_time, keeps_its_zone_and_daylight)
{
    for (int zone : {-1440, -60, 0, 330, 1440, 0x7ff}) {
        EFI_TIME wanted = at(2024, 6, 1, 12);
        wanted.timezone = static_cast<int16_t>(zone);
        wanted.daylight = 3;
        ASSERT_EQ(set(wanted), EFI_SUCCESS);
        EFI_TIME time = {};
        ASSERT_EQ(get(&time), EFI_SUCCESS);
        EXPECT_EQ(time.timezone, zone);
        EXPECT_EQ(time.daylight, 3);
        EXPECT_EQ(time.hour, 12);
    }
}

TEST_F(machine_time, nanoseconds_count)
{
    EFI_TIME wanted = at(2024, 6, 1, 12);
    wanted.nanosecond = 999'999'999;
    ASSERT_EQ(set(wanted), EFI_SUCCESS);
    EFI_TIME time = {};
    ASSERT_EQ(get(&time), EFI_SUCCESS);
    EXPECT_GT(seconds_of(time), seconds_of(wanted)) << "a nanosecond later the second is over";
}

TEST_F(machine_time, bad_field_is_refused_and_nothing_kept)
{
    for (EFI_TIME bad : {at(1899, 12, 31), at(10000, 1, 1), at(2024, 0, 1), at(2023, 2, 29),
                         at(2024, 1, 1, 24), at(2024, 1, 1, 0, 60), at(2024, 1, 1, 0, 0, 60), EFI_TIME{}})
        EXPECT_EQ(set(bad), EFI_INVALID_PARAMETER);
    EFI_TIME bad = at(2024, 1, 1);
    bad.nanosecond = 1'000'000'000;
    EXPECT_EQ(set(bad), EFI_INVALID_PARAMETER);
    bad = at(2024, 1, 1);
    bad.timezone = 1441;
    EXPECT_EQ(set(bad), EFI_INVALID_PARAMETER);
    bad = at(2024, 1, 1);
    bad.daylight = 4;
    EXPECT_EQ(set(bad), EFI_INVALID_PARAMETER);
    EXPECT_FALSE(fs::exists(disk.root() / "var"));
}

TEST_F(machine_time, offset_that_makes_no_sense_is_said_until_the_time_is_set)
{
    for (const char *text :
         {"", "1 2 3\n", "x\n", "9223372036854775807 999999999 0 0\n", "-9223372036854775808 0 0 0\n",
          "999999999999 0 0 0\n", "0 -1 0 0\n", "0 1000000000 0 0\n", "0 0 1441 0\n", "0 0 65536 0\n",
          "0 0 0 4\n", "0 0 0 256\n"}) {
        disk.put_file(disk.state("time-offset"), text);
        EFI_TIME time = {};
        EXPECT_EQ(get(&time), EFI_DEVICE_ERROR) << text;
    }
    EXPECT_EQ(set(at(2000, 1, 1)), EFI_SUCCESS);
    EFI_TIME time = {};
    EXPECT_EQ(get(&time), EFI_SUCCESS);
    EXPECT_EQ(time.year, 2000);
}

TEST_F(machine_time, each_machine_has_its_own)
{
    ASSERT_EQ(set(at(2000, 1, 1)), EFI_SUCCESS);
    machine_folder other;
    device of_other;
    EFI_TIME time = {};
    EFI_STATUS status = not_answered;
    ovra_get_time_args_t args = {&time, nullptr, &status};
    ASSERT_EQ(devns_ioctl(of_other.fd(), OVRA_GET_TIME, &args), 0);
    EXPECT_GT(time.year, 2000);
}

TEST_F(wakeup_alarm, is_off_and_without_a_time_at_first)
{
    alarm found = wakeup();
    EXPECT_EQ(found.enabled, B_FALSE);
    EXPECT_EQ(found.pending, B_FALSE);
    EFI_TIME none = {};
    EXPECT_EQ(std::memcmp(&found.time, &none, sizeof none), 0);
}

TEST_F(wakeup_alarm, that_is_set_is_shown)
{
    EFI_TIME wanted = at(9998, 7, 6, 5, 4, 3);
    wanted.nanosecond = 21;
    wanted.timezone = -60;
    wanted.daylight = 1;
    ASSERT_EQ(set_wakeup(B_TRUE, &wanted), EFI_SUCCESS);
    alarm found = wakeup();
    EXPECT_EQ(found.enabled, B_TRUE);
    EXPECT_EQ(found.pending, B_FALSE);
    EXPECT_EQ(std::memcmp(&found.time, &wanted, sizeof wanted), 0);
}

TEST_F(wakeup_alarm, is_pending_once_its_time_has_come)
{
    EFI_TIME wanted = at(2001, 1, 1);
    ASSERT_EQ(set_wakeup(B_TRUE, &wanted), EFI_SUCCESS);
    EXPECT_EQ(wakeup().pending, B_TRUE);
    ASSERT_EQ(set(at(2000, 12, 31)), EFI_SUCCESS);
    EXPECT_EQ(wakeup().pending, B_FALSE);
}

TEST_F(wakeup_alarm, that_is_off_keeps_its_time_and_is_never_pending)
{
    EFI_TIME wanted = at(2001, 1, 1);
    ASSERT_EQ(set_wakeup(B_TRUE, &wanted), EFI_SUCCESS);
    EFI_TIME other = at(2002, 1, 1);
    ASSERT_EQ(set_wakeup(B_FALSE, &other), EFI_SUCCESS);
    alarm found = wakeup();
    EXPECT_EQ(found.enabled, B_FALSE);
    EXPECT_EQ(found.pending, B_FALSE);
    EXPECT_EQ(found.time.year, 2001);
}

TEST_F(wakeup_alarm, can_be_switched_off_without_a_time)
{
    EXPECT_EQ(set_wakeup(B_FALSE, nullptr), EFI_SUCCESS);
    EXPECT_EQ(wakeup().enabled, B_FALSE);
}

TEST_F(wakeup_alarm, needs_a_valid_time_to_be_switched_on)
{
    EFI_TIME bad = at(2024, 2, 30);
    EXPECT_EQ(set_wakeup(B_TRUE, &bad), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set_wakeup(B_TRUE, nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(wakeup().enabled, B_FALSE);
}

TEST_F(wakeup_alarm, state_that_makes_no_sense_is_said_until_an_alarm_is_set)
{
    for (const char *text :
         {"", "1\n", "2 2024 1 1 0 0 0 0 0 0\n", "1 2024 13 1 0 0 0 0 0 0\n", "1 67560 1 1 0 0 0 0 0 0\n",
          "1 2024 257 1 0 0 0 0 0 0\n", "1 2024 1 1 0 0 0 4294967296 0 0\n", "1 2024 1 1 0 0 0 0 0 0 0\n"}) {
        disk.put_file(disk.state("wakeup"), text);
        EXPECT_EQ(wakeup(EFI_DEVICE_ERROR).enabled, B_TRUE) << text; // as it was before the call
        EXPECT_EQ(set_wakeup(B_FALSE, nullptr), EFI_DEVICE_ERROR) << text;
    }
    EFI_TIME time = at(2024, 1, 1);
    EXPECT_EQ(set_wakeup(B_TRUE, &time), EFI_SUCCESS);
    EXPECT_EQ(wakeup().enabled, B_TRUE);
}

TEST_F(monotonic_count, goes_up_by_one_through_every_handle)
{
    EXPECT_EQ(count(), 1u);
    EXPECT_EQ(count(), 2u);
    device fresh;
    UINT32 next = 0;
    EFI_STATUS status = not_answered;
    ovra_get_next_high_monotonic_count_args_t args = {&next, &status};
    ASSERT_EQ(devns_ioctl(fresh.fd(), OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args), 0);
    EXPECT_EQ(next, 3u);
    EXPECT_EQ(disk.contents(disk.state("monotonic-count")), "3\n");
}

TEST_F(monotonic_count, begins_anew_behind_its_last_number)
{
    disk.put_file(disk.state("monotonic-count"), "4294967294\n");
    EXPECT_EQ(count(), 4294967295u);
    EXPECT_EQ(count(), 0u);
    EXPECT_EQ(count(), 1u);
}

TEST_F(monotonic_count, state_that_makes_no_sense_gives_out_no_number_twice)
{
    for (const char *text : {"", "-1\n", "4294967296\n", "seven\n", "7"}) {
        disk.put_file(disk.state("monotonic-count"), text);
        EFI_STATUS status = EFI_SUCCESS;
        EXPECT_EQ(count(&status), 0xdeadu) << text;
        EXPECT_EQ(status, EFI_DEVICE_ERROR) << text;
        EXPECT_EQ(disk.contents(disk.state("monotonic-count")), text);
    }
}

TEST_F(monotonic_count, number_that_cannot_be_kept_is_not_given_out)
{
    disk.put_file(disk.root() / "var", "a file where the folder should be");
    EFI_STATUS status = EFI_SUCCESS;
    EXPECT_EQ(count(&status), 0xdeadu);
    EXPECT_EQ(status, EFI_DEVICE_ERROR);
    EXPECT_EQ(set(at(2024, 1, 1)), EFI_DEVICE_ERROR);
    EFI_TIME time = at(2024, 1, 1);
    EXPECT_EQ(set_wakeup(B_TRUE, &time), EFI_DEVICE_ERROR);
}

} // namespace
