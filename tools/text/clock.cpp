// SPDX-License-Identifier: MIT
#include "tools/text/clock.h"

#include <chrono>
#include <cstdlib>
#include <regex>

#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

std::string time_text(const EFI_TIME &time)
{
    std::string text = format("%04d-%02d-%02dT%02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                              time.minute, time.second);
    if (time.timezone == no_timezone)
        return text;
    // The firmware's zone is what is added to local time to get UTC; ISO 8601 writes the opposite.
    const int east = -time.timezone;
    return text + format("%c%02d:%02d", east < 0 ? '-' : '+', std::abs(east) / 60, std::abs(east) % 60);
}

bool is_before(const EFI_TIME &time, const EFI_TIME &other)
{
    const bool zones = time.timezone != no_timezone && other.timezone != no_timezone;
    const auto moment = [zones](const EFI_TIME &of) {
        const std::chrono::year_month_day date(std::chrono::year(of.year), std::chrono::month(of.month),
                                               std::chrono::day(of.day));
        // The firmware's zone is what is added to local time to get UTC.
        return std::chrono::sys_days(date) + std::chrono::hours(of.hour) +
               std::chrono::minutes(of.minute + (zones ? of.timezone : 0)) + std::chrono::seconds(of.second);
    };
    return moment(time) < moment(other);
}

EFI_TIME parse_time(const std::string &text)
{
    static const std::regex iso(
        R"((\d{4})-(\d\d)-(\d\d)[Tt ](\d\d):(\d\d)(?::(\d\d))?(?:([Zz])|([+-])(\d\d):?(\d\d))?)");
    std::smatch parts;
    if (!std::regex_match(text, parts, iso))
        throw usage_error(in_quotes(text) +
                          " is not a time such as 2026-01-31T12:00:00 or 2026-01-31T12:00:00+02:00");
    const auto number = [&parts](size_t at) {
        return parts[at].matched ? static_cast<unsigned>(std::stoul(parts[at].str())) : 0u;
    };
    const unsigned zone = number(9) * 60 + number(10);
    const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(number(1))),
                                           std::chrono::month(number(2)), std::chrono::day(number(3)));
    // A zone is at most 24 hours from UTC (UEFI 8.3).
    if (!date.ok() || number(1) < 1900 || number(4) > 23 || number(5) > 59 || number(6) > 59 ||
        number(10) > 59 || zone > 1440)
        throw usage_error(in_quotes(text) + " is not a time that a clock can show");

    EFI_TIME time = {};
    time.year = static_cast<uint16_t>(number(1));
    time.month = static_cast<uint8_t>(number(2));
    time.day = static_cast<uint8_t>(number(3));
    time.hour = static_cast<uint8_t>(number(4));
    time.minute = static_cast<uint8_t>(number(5));
    time.second = static_cast<uint8_t>(number(6));
    time.timezone = no_timezone;
    if (parts[7].matched)
        time.timezone = 0;
    else if (parts[8].matched)
        time.timezone =
            static_cast<int16_t>(parts[8] == "+" ? -static_cast<int>(zone) : static_cast<int>(zone));
    return time;
}

} // namespace tool
