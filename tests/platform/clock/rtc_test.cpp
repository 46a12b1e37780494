// SPDX-License-Identifier: MIT
// The host's clock chip, with a stand-in for the kernel's answers: nothing here changes this host's clock.
#include <cerrno>

#include <gtest/gtest.h>
#include <linux/rtc.h>

#include "platform/machine/clock.h"
#include "platform/machine/services.h"
#include "tests/platform/efi_times.h"
#include "tests/platform/failing_calls.h"
#include "tests/platform/machine_folder.h"

using platform_test::at;
using platform_test::machine_folder;
using platform_test::replaced_ioctl;

namespace {

// A clock chip as the kernel shows it.
struct chip {
    rtc_time time = {.tm_sec = 56,
                     .tm_min = 34,
                     .tm_hour = 12,
                     .tm_mday = 29,
                     .tm_mon = 1,
                     .tm_year = 124,
                     .tm_wday = 0,
                     .tm_yday = 0,
                     .tm_isdst = 0};
    rtc_wkalrm alarm = {};
    int error = 0;
    int largest_year = 1000; // of an alarm
    int error_beyond = 0;

    int answer(unsigned long request, void *argument)
    {
        if (error != 0)
            return error;
        switch (request) {
        case RTC_RD_TIME:
            *static_cast<rtc_time *>(argument) = time;
            return 0;
        case RTC_SET_TIME:
            time = *static_cast<rtc_time *>(argument);
            return 0;
        case RTC_WKALM_RD:
            *static_cast<rtc_wkalrm *>(argument) = alarm;
            return 0;
        case RTC_WKALM_SET:
            alarm = *static_cast<rtc_wkalrm *>(argument);
            if (alarm.time.tm_year <= largest_year)
                return 0;
            alarm.time.tm_year -= 1;
            alarm.enabled = error_beyond == 0 ? 1 : 0;
            return error_beyond;
        default:
            return ENOTTY;
        }
    }
};

class clock_chip : public testing::Test {
protected:
    machine_folder disk;
    chip clock;
    replaced_ioctl replaced{
        [this](int, unsigned long request, void *argument) { return clock.answer(request, argument); }};
    std::unique_ptr<machine::runtime_services> services;

    void SetUp() override
    {
        disk.put_file(disk.root() / "dev/rtc0", "");
        services = machine::open_services();
        services->root.live = true;
    }
};

EFI_TIME example_time()
{
    EFI_TIME time = at(2030, 12, 31, 23, 58, 57);
    time.timezone = 0x7ff;
    return time;
}

TEST_F(clock_chip, time_is_the_chips_with_no_time_zone)
{
    EFI_TIME time = {};
    EFI_TIME_CAPABILITIES capabilities = {};
    ASSERT_EQ(machine::get_time(*services, &time, &capabilities), EFI_SUCCESS);
    EXPECT_EQ(time.year, 2024);
    EXPECT_EQ(time.month, 2);
    EXPECT_EQ(time.day, 29);
    EXPECT_EQ(time.hour, 12);
    EXPECT_EQ(time.minute, 34);
    EXPECT_EQ(time.second, 56);
    EXPECT_EQ(time.nanosecond, 0u);
    EXPECT_EQ(time.timezone, 0x7ff);
    EXPECT_EQ(capabilities.resolution, 1u);
}

TEST_F(clock_chip, time_that_is_set_is_shown)
{
    ASSERT_EQ(machine::set_time(*services, example_time()), EFI_SUCCESS);
    EXPECT_EQ(clock.time.tm_year, 130);
    EXPECT_EQ(clock.time.tm_mon, 11);
    EFI_TIME time = {};
    ASSERT_EQ(machine::get_time(*services, &time, nullptr), EFI_SUCCESS);
    EXPECT_EQ(time.day, 31);
    EXPECT_EQ(time.second, 57);
}

TEST_F(clock_chip, chip_that_shows_no_date_is_a_device_error)
{
    clock.time.tm_mon = 12;
    EFI_TIME time = {};
    time.year = 1;
    EXPECT_EQ(machine::get_time(*services, &time, nullptr), EFI_DEVICE_ERROR);
    EXPECT_EQ(time.year, 1);
}

TEST_F(clock_chip, alarm_that_is_set_is_shown)
{
    EFI_TIME wanted = example_time();
    ASSERT_EQ(machine::set_wakeup_time(*services, true, &wanted), EFI_SUCCESS);
    EXPECT_EQ(clock.alarm.enabled, 1);
    machine::wakeup alarm;
    ASSERT_EQ(machine::get_wakeup_time(*services, &alarm), EFI_SUCCESS);
    EXPECT_TRUE(alarm.enabled);
    EXPECT_FALSE(alarm.pending);
    EXPECT_EQ(alarm.time.year, 2030);
    EXPECT_EQ(alarm.time.hour, 23);
}

TEST_F(clock_chip, alarm_is_switched_off_with_its_time_kept)
{
    EFI_TIME wanted = example_time();
    ASSERT_EQ(machine::set_wakeup_time(*services, true, &wanted), EFI_SUCCESS);
    ASSERT_EQ(machine::set_wakeup_time(*services, false, nullptr), EFI_SUCCESS);
    EXPECT_EQ(clock.alarm.enabled, 0);
    EXPECT_EQ(clock.alarm.time.tm_year, 130);
}

TEST_F(clock_chip, zone_that_the_chip_cannot_keep_is_refused)
{
    EFI_TIME time = example_time();
    time.timezone = -120;
    EXPECT_EQ(machine::set_time(*services, time), EFI_UNSUPPORTED);
    EXPECT_EQ(machine::set_wakeup_time(*services, true, &time), EFI_UNSUPPORTED);
    time.timezone = 0x7ff;
    time.daylight = 1;
    EXPECT_EQ(machine::set_time(*services, time), EFI_UNSUPPORTED);
    EXPECT_EQ(clock.time.tm_year, 124);
    EXPECT_EQ(clock.alarm.enabled, 0);
    time.daylight = 0;
    time.timezone = 0; // UTC
    EXPECT_EQ(machine::set_time(*services, time), EFI_SUCCESS);
}

TEST_F(clock_chip, alarm_that_is_not_ahead_leaves_the_one_that_stands)
{
    EFI_TIME stands = example_time();
    ASSERT_EQ(machine::set_wakeup_time(*services, true, &stands), EFI_SUCCESS);
    EFI_TIME past = stands;
    past.year = 2023;
    EXPECT_EQ(machine::set_wakeup_time(*services, true, &past), EFI_INVALID_PARAMETER);
    EFI_TIME now = {};
    ASSERT_EQ(machine::get_time(*services, &now, nullptr), EFI_SUCCESS);
    EXPECT_EQ(machine::set_wakeup_time(*services, true, &now), EFI_INVALID_PARAMETER);
    EXPECT_EQ(clock.alarm.enabled, 1);
    EXPECT_EQ(clock.alarm.time.tm_year, 130);
}

// The kernel drops the previous alarm before it asks the chip for the new one.
TEST_F(clock_chip, alarm_that_the_chip_does_not_take_leaves_the_one_that_stands)
{
    for (int error : {EINVAL, ERANGE, EIO, 0}) {
        clock.largest_year = 130;
        EFI_TIME stands = example_time();
        ASSERT_EQ(machine::set_wakeup_time(*services, true, &stands), EFI_SUCCESS);
        EFI_TIME late = stands;
        late.year = 2031;
        clock.error_beyond = error; // 0: it silently takes another time
        EXPECT_EQ(machine::set_wakeup_time(*services, true, &late),
                  error == EIO ? EFI_DEVICE_ERROR : EFI_INVALID_PARAMETER)
            << error;
        EXPECT_EQ(clock.alarm.enabled, 1) << error;
        EXPECT_EQ(clock.alarm.time.tm_year, 130) << error;
    }
}

TEST_F(clock_chip, chip_below_a_link_is_not_the_machines)
{
    std::filesystem::rename(disk.root() / "dev/rtc0", disk.root() / "elsewhere");
    std::filesystem::create_symlink(disk.root() / "elsewhere", disk.root() / "dev/rtc0");
    EFI_TIME time = {};
    EXPECT_NE(machine::get_time(*services, &time, nullptr), EFI_SUCCESS);
}

TEST_F(clock_chip, bad_time_never_reaches_the_chip)
{
    EFI_TIME bad = example_time();
    bad.month = 13;
    EXPECT_EQ(machine::set_time(*services, bad), EFI_INVALID_PARAMETER);
    EXPECT_EQ(machine::set_wakeup_time(*services, true, &bad), EFI_INVALID_PARAMETER);
    EXPECT_EQ(machine::set_wakeup_time(*services, true, nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(clock.time.tm_year, 124);
    EXPECT_EQ(clock.alarm.enabled, 0);
}

TEST_F(clock_chip, what_the_chip_cannot_do_is_unsupported)
{
    EFI_TIME time = example_time();
    machine::wakeup alarm;
    for (int error : {ENOTTY, EINVAL}) {
        clock.error = error;
        EXPECT_EQ(machine::get_time(*services, &time, nullptr), EFI_UNSUPPORTED);
        EXPECT_EQ(machine::set_time(*services, time), EFI_UNSUPPORTED);
        EXPECT_EQ(machine::get_wakeup_time(*services, &alarm), EFI_UNSUPPORTED);
        EXPECT_EQ(machine::set_wakeup_time(*services, true, &time), EFI_UNSUPPORTED);
        EXPECT_EQ(machine::set_wakeup_time(*services, false, nullptr), EFI_UNSUPPORTED);
    }
}

TEST_F(clock_chip, host_without_a_chip_is_unsupported)
{
    std::filesystem::remove(disk.root() / "dev/rtc0");
    EFI_TIME time = {};
    EXPECT_EQ(machine::get_time(*services, &time, nullptr), EFI_UNSUPPORTED);
}

TEST_F(clock_chip, missing_permission_is_denied_and_a_failure_an_error)
{
    EFI_TIME time = example_time();
    clock.error = EACCES;
    EXPECT_EQ(machine::set_time(*services, time), EFI_ACCESS_DENIED);
    clock.error = EBUSY;
    EXPECT_EQ(machine::set_time(*services, time), EFI_DEVICE_ERROR);
}

TEST_F(clock_chip, live_machine_has_no_monotonic_count)
{
    UINT32 count = 7;
    EXPECT_EQ(machine::next_high_monotonic_count(*services, &count), EFI_UNSUPPORTED);
    EXPECT_EQ(count, 7u);
}

TEST_F(clock_chip, live_machine_keeps_nothing_in_its_folder)
{
    ASSERT_EQ(machine::set_time(*services, example_time()), EFI_SUCCESS);
    EFI_TIME wanted = example_time();
    wanted.year += 1;
    ASSERT_EQ(machine::set_wakeup_time(*services, true, &wanted), EFI_SUCCESS);
    EXPECT_FALSE(std::filesystem::exists(disk.root() / "var"));
    EXPECT_TRUE(std::filesystem::exists(disk.root() / "run/ovra.lock"));
}

} // namespace
