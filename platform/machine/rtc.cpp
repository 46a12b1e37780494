#include "platform/machine/machine.h"

#include <cerrno>

#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>

namespace machine {

namespace {

constexpr int16_t unspecified_timezone = 0x7ff; // the chip does not say whether it runs on UTC
constexpr int first_year = 1900;                // as in struct tm

EFI_STATUS rtc_status(int error)
{
    switch (error) {
    case ENOENT: // no chip, or one without an alarm
    case ENODEV:
    case ENXIO:
    case ENOTTY:
    case EINVAL:
        return EFI_UNSUPPORTED;
    default:
        return status_of(error);
    }
}

/* One request to the chip, which is open only for it: the kernel lets one program at a time have it. */
template <typename record>
EFI_STATUS ask(const machine_root &root, unsigned long request, record *argument)
{
    descriptor chip(openat(root.folder.get(), "dev/rtc0", O_RDONLY | O_CLOEXEC));
    if (!chip || ioctl(chip.get(), request, argument) != 0)
        return rtc_status(errno);
    return EFI_SUCCESS;
}

/* Nothing when the chip shows no date, as after its battery has failed. */
std::optional<EFI_TIME> from_chip(const rtc_time &shown)
{
    EFI_TIME time = {};
    time.year = static_cast<uint16_t>(shown.tm_year + first_year);
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
    wanted.tm_year = time.year - first_year;
    wanted.tm_mon = time.month - 1;
    wanted.tm_mday = time.day;
    wanted.tm_hour = time.hour;
    wanted.tm_min = time.minute;
    wanted.tm_sec = time.second;
    return wanted;
}

} // namespace

EFI_STATUS rtc_get_time(const machine_root &root, EFI_TIME *time)
{
    rtc_time shown = {};
    if (EFI_STATUS status = ask(root, RTC_RD_TIME, &shown); status != EFI_SUCCESS)
        return status;
    auto read = from_chip(shown);
    if (!read)
        return EFI_DEVICE_ERROR;
    *time = *read;
    return EFI_SUCCESS;
}

EFI_STATUS rtc_set_time(const machine_root &root, const EFI_TIME &time)
{
    rtc_time wanted = to_chip(time);
    return ask(root, RTC_SET_TIME, &wanted);
}

EFI_STATUS rtc_get_wakeup_time(const machine_root &root, wakeup *alarm)
{
    rtc_wkalrm shown = {};
    if (EFI_STATUS status = ask(root, RTC_WKALM_RD, &shown); status != EFI_SUCCESS)
        return status;
    *alarm = {shown.enabled != 0, shown.pending != 0, from_chip(shown.time).value_or(EFI_TIME{})};
    return EFI_SUCCESS;
}

EFI_STATUS rtc_set_wakeup_time(const machine_root &root, bool enable, const EFI_TIME *time)
{
    rtc_wkalrm wanted = {};
    if (enable) {
        wanted.time = to_chip(*time);
    } else if (EFI_STATUS status = ask(root, RTC_WKALM_RD, &wanted); status != EFI_SUCCESS) {
        return status; // the kernel wants the alarm's time too when it is switched off
    }
    wanted.enabled = enable ? 1 : 0;
    wanted.pending = 0;
    return ask(root, RTC_WKALM_SET, &wanted);
}

} // namespace machine
