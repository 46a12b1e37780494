// SPDX-License-Identifier: MIT
#include "platform/machine/eficlock.h"

#include <chrono>

namespace machine {

namespace {

using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;

constexpr int16_t largest_timezone = 1440; // minutes
constexpr uint8_t daylight_bits = 0x03;
constexpr uint16_t first_year = 1900;
constexpr uint16_t last_year = 9999;
constexpr uint32_t last_nanosecond = 999'999'999;

std::chrono::year_month_day date_of(const EFI_TIME &time)
{
    return {std::chrono::year(time.year), std::chrono::month(time.month), std::chrono::day(time.day)};
}

bool is_valid(const EFI_TIME &time)
{
    const bool date = time.year >= first_year && time.year <= last_year && date_of(time).ok();
    const bool clock =
        time.hour < 24 && time.minute < 60 && time.second < 60 && time.nanosecond <= last_nanosecond;
    const bool zone = time.timezone == unspecified_timezone ||
                      (time.timezone >= -largest_timezone && time.timezone <= largest_timezone);
    return date && clock && zone && (time.daylight & ~daylight_bits) == 0;
}

} // namespace

std::optional<std::int64_t> seconds_of(const EFI_TIME &time)
{
    if (!is_valid(time))
        return std::nullopt;
    const sys_seconds moment = sys_days(date_of(time)) + std::chrono::hours(time.hour) +
                               std::chrono::minutes(time.minute) + seconds(time.second);
    return moment.time_since_epoch().count();
}

std::optional<EFI_TIME> time_of(std::int64_t count, std::uint32_t nanosecond)
{
    using namespace std::chrono_literals;
    constexpr sys_seconds earliest = sys_days(std::chrono::year(first_year) / 1 / 1);
    constexpr sys_seconds end = sys_days(std::chrono::year(last_year + 1) / 1 / 1);
    const sys_seconds moment{seconds(count)};
    if (moment < earliest || moment >= end || nanosecond > last_nanosecond)
        return std::nullopt;
    const sys_days day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(moment - day);
    EFI_TIME time = {};
    time.year = static_cast<uint16_t>(static_cast<int>(date.year()));
    time.month = static_cast<uint8_t>(static_cast<unsigned>(date.month()));
    time.day = static_cast<uint8_t>(static_cast<unsigned>(date.day()));
    time.hour = static_cast<uint8_t>(clock.hours().count());
    time.minute = static_cast<uint8_t>(clock.minutes().count());
    time.second = static_cast<uint8_t>(clock.seconds().count());
    time.nanosecond = nanosecond;
    return time;
}

bool is_reached(const EFI_TIME &alarm, const EFI_TIME &now)
{
    auto alarm_seconds = seconds_of(alarm);
    auto now_seconds = seconds_of(now);
    if (!alarm_seconds || !now_seconds)
        return false;
    if (alarm.timezone != unspecified_timezone && now.timezone != unspecified_timezone) {
        constexpr std::int64_t minute = 60; // local time = UTC - time zone
        *alarm_seconds += alarm.timezone * minute;
        *now_seconds += now.timezone * minute;
    }
    if (*alarm_seconds != *now_seconds)
        return *alarm_seconds < *now_seconds;
    return alarm.nanosecond <= now.nanosecond;
}

} // namespace machine
