// SPDX-License-Identifier: MIT
#include "platform/machine/rtc.h"

#include <cerrno>

#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>

#include "platform/machine/debug.h"
#include "platform/machine/eficlock.h"

namespace machine {

namespace {

constexpr int year_of_tm = 1900; // from which struct tm counts

EFI_STATUS rtc_status(int error)
{
    switch (error) {
    case 0:
        return EFI_SUCCESS;
    case ENOENT: // no chip, or one without an alarm (drivers/rtc/interface.c)
    case ENODEV:
    case ENXIO:
    case ENOTTY:
    case EINVAL:
        return EFI_UNSUPPORTED;
    case ERANGE: // a date outside the chip's range (drivers/rtc/interface.c, rtc_valid_range)
        return EFI_INVALID_PARAMETER;
    default:
        return status_of(error);
    }
}

// One request to the chip. It is opened for each: the kernel lets one program at a time have it
// (drivers/rtc/dev.c, rtc_dev_open).
template <typename record>
int ask_chip(const machine_root &root, unsigned long request, record *argument)
{
    const owned_fd folder = open_below(root.folder.get(), {"dev"}, missing_folders::fail);
    if (!folder)
        return errno;
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const owned_fd chip(openat(folder.get(), "rtc0", flags));
    return chip && ioctl(chip.get(), request, argument) == 0 ? 0 : errno;
}

template <typename record>
EFI_STATUS ask(const machine_root &root, unsigned long request, record *argument)
{
    return rtc_status(ask_chip(root, request, argument));
}

// Nothing when the chip shows no date, as after its battery failed.
std::optional<EFI_TIME> from_chip(const rtc_time &shown)
{
    EFI_TIME time = {};
    time.year = static_cast<uint16_t>(shown.tm_year + year_of_tm);
    time.month = static_cast<uint8_t>(shown.tm_mon + 1);
    time.day = static_cast<uint8_t>(shown.tm_mday);
    time.hour = static_cast<uint8_t>(shown.tm_hour);
    time.minute = static_cast<uint8_t>(shown.tm_min);
    time.second = static_cast<uint8_t>(shown.tm_sec);
    time.timezone = unspecified_timezone;
    if (!seconds_of(time))
        return std::nullopt;
    return time;
}

rtc_time to_chip(const EFI_TIME &time)
{
    rtc_time wanted = {};
    wanted.tm_year = time.year - year_of_tm;
    wanted.tm_mon = time.month - 1;
    wanted.tm_mday = time.day;
    wanted.tm_hour = time.hour;
    wanted.tm_min = time.minute;
    wanted.tm_sec = time.second;
    return wanted;
}

// The chip would forget a time zone, and the time would change.
bool has_no_zone(const EFI_TIME &time)
{
    return (time.timezone == unspecified_timezone || time.timezone == 0) && time.daylight == 0;
}

// Whether the chip took the alarm. Some chips have no seconds.
bool is_same_alarm(const rtc_wkalrm &shown, const EFI_TIME &wanted)
{
    const auto time = from_chip(shown.time);
    if (!time || shown.enabled == 0)
        return false;
    constexpr std::int64_t minute = 60;
    const std::int64_t difference = *seconds_of(wanted) - *seconds_of(*time);
    return difference >= 0 && difference < minute;
}

EFI_STATUS switch_on(const machine_root &root, const EFI_TIME &time)
{
    EFI_TIME now = {};
    if (const EFI_STATUS status = rtc_get_time(root, &now); status != EFI_SUCCESS)
        return status;
    const auto wanted_seconds = seconds_of(time);
    // The kernel takes an alarm in the past and drops the previous one.
    if (!wanted_seconds || *wanted_seconds <= *seconds_of(now))
        return EFI_INVALID_PARAMETER;
    rtc_wkalrm before = {};
    if (const EFI_STATUS status = ask(root, RTC_WKALM_RD, &before); status != EFI_SUCCESS)
        return status;
    rtc_wkalrm wanted = {};
    wanted.enabled = 1;
    wanted.time = to_chip(time);
    const int error = ask_chip(root, RTC_WKALM_SET, &wanted);
    EFI_STATUS status = rtc_status(error);
    if (error == EINVAL || error == EDOM) // reading the old alarm worked: the chip has alarms
        status = EFI_INVALID_PARAMETER;
    if (status == EFI_SUCCESS) {
        rtc_wkalrm shown = {};
        status = ask(root, RTC_WKALM_RD, &shown);
        if (status == EFI_SUCCESS && is_same_alarm(shown, time))
            return EFI_SUCCESS;
        if (status == EFI_SUCCESS && rtc_get_time(root, &now) == EFI_SUCCESS &&
            *wanted_seconds <= *seconds_of(now))
            return EFI_SUCCESS; // the alarm has gone off meanwhile
        if (status == EFI_SUCCESS)
            status = EFI_INVALID_PARAMETER;
    }
    debug("the clock chip does not take this alarm: it may be too far ahead for it");
    // The refusal may have cleared the previous alarm.
    before.pending = 0;
    if (const EFI_STATUS restored = ask(root, RTC_WKALM_SET, &before);
        restored != EFI_SUCCESS && before.enabled != 0) {
        debug("the alarm that stood before is lost");
        return EFI_DEVICE_ERROR;
    }
    return status;
}

} // namespace

EFI_STATUS rtc_get_time(const machine_root &root, EFI_TIME *time)
{
    rtc_time shown = {};
    if (const EFI_STATUS status = ask(root, RTC_RD_TIME, &shown); status != EFI_SUCCESS)
        return status;
    const auto read = from_chip(shown);
    if (!read)
        return EFI_DEVICE_ERROR;
    *time = *read;
    return EFI_SUCCESS;
}

EFI_STATUS rtc_set_time(const machine_root &root, const EFI_TIME &time)
{
    if (!has_no_zone(time))
        return EFI_UNSUPPORTED;
    rtc_time wanted = to_chip(time);
    return ask(root, RTC_SET_TIME, &wanted);
}

EFI_STATUS rtc_get_wakeup_time(const machine_root &root, wakeup *alarm)
{
    rtc_wkalrm shown = {};
    if (const EFI_STATUS status = ask(root, RTC_WKALM_RD, &shown); status != EFI_SUCCESS)
        return status;
    *alarm = {shown.enabled != 0, shown.pending != 0, from_chip(shown.time).value_or(EFI_TIME{})};
    return EFI_SUCCESS;
}

EFI_STATUS rtc_set_wakeup_time(const machine_root &root, bool enable, const EFI_TIME *time)
{
    if (enable)
        return has_no_zone(*time) ? switch_on(root, *time) : EFI_UNSUPPORTED;
    rtc_wkalrm alarm = {};
    // The kernel wants a valid time even to switch the alarm off (drivers/rtc/interface.c, rtc_set_alarm).
    if (const EFI_STATUS status = ask(root, RTC_WKALM_RD, &alarm); status != EFI_SUCCESS)
        return status;
    alarm.enabled = 0;
    alarm.pending = 0;
    return ask(root, RTC_WKALM_SET, &alarm);
}

} // namespace machine
