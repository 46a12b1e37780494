// SPDX-License-Identifier: MIT
#include "platform/machine/clock.h"

#include <array>
#include <ctime>

#include "platform/machine/eficlock.h"
#include "platform/machine/lock.h"
#include "platform/machine/rtc.h"
#include "platform/machine/state.h"

namespace machine {

namespace {

constexpr std::int64_t nanoseconds = 1'000'000'000;

// Seconds and nanoseconds from the host's clock to the machine's, time zone, daylight.
constexpr const char *offset_file = "time-offset";
// 1 (enabled) or 0, then year to second, nanosecond, time zone, daylight.
constexpr const char *wakeup_file = "wakeup";
// The last number given out.
constexpr const char *count_file = "monotonic-count";

struct moment {
    std::int64_t seconds = 0;
    std::int64_t nanosecond = 0; // 0 to 999,999,999
};

moment host_now()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return {now.tv_sec, now.tv_nsec};
}

// The host's time moved by the stored offset; nothing when the offset makes no sense.
std::optional<EFI_TIME> shifted_time(moment host, const std::array<std::int64_t, 4> &stored)
{
    auto [seconds, fraction, zone, daylight] = stored;
    std::int64_t sum = 0;
    if (fraction < 0 || fraction >= nanoseconds || __builtin_add_overflow(host.seconds, seconds, &sum))
        return std::nullopt;
    fraction += host.nanosecond;
    if (__builtin_add_overflow(sum, fraction / nanoseconds, &sum))
        return std::nullopt;
    auto time = time_of(sum, static_cast<std::uint32_t>(fraction % nanoseconds));
    if (!time)
        return std::nullopt;
    time->timezone = static_cast<int16_t>(zone);
    time->daylight = static_cast<uint8_t>(daylight);
    if (time->timezone != zone || time->daylight != daylight || !seconds_of(*time))
        return std::nullopt;
    return time;
}

// The file of a stopped machine's variables has no place for clocks and counts: the emulator has those.
bool keeps_state(const runtime_services &services)
{
    return services.kind != store_kind::image;
}

EFI_STATUS time_now(const runtime_services &services, EFI_TIME *time)
{
    std::array<std::int64_t, 4> stored = {};
    bool found = false;
    const EFI_STATUS status =
        keeps_state(services) ? read_state(services, offset_file, stored, &found) : EFI_SUCCESS;
    if (status != EFI_SUCCESS)
        return status;
    const auto shown = shifted_time(host_now(), stored); // the host's own time if none was ever set
    if (!shown)
        return refuse_state(offset_file);
    *time = *shown;
    return EFI_SUCCESS;
}

// False for a number that does not fit its field: the stored alarm then makes no sense.
template <typename field>
bool put(std::int64_t number, field *out)
{
    *out = static_cast<field>(number);
    return *out == number;
}

EFI_STATUS read_wakeup(const runtime_services &services, wakeup *alarm, bool *found)
{
    std::array<std::int64_t, 10> stored = {};
    if (const EFI_STATUS status = read_state(services, wakeup_file, stored, found); status != EFI_SUCCESS)
        return status;
    *alarm = {};
    if (!*found)
        return EFI_SUCCESS;
    EFI_TIME time = {};
    const bool fits =
        put(stored[1], &time.year) && put(stored[2], &time.month) && put(stored[3], &time.day) &&
        put(stored[4], &time.hour) && put(stored[5], &time.minute) && put(stored[6], &time.second) &&
        put(stored[7], &time.nanosecond) && put(stored[8], &time.timezone) && put(stored[9], &time.daylight);
    if (!fits || !seconds_of(time) || (stored[0] != 0 && stored[0] != 1))
        return refuse_state(wakeup_file);
    *alarm = {stored[0] == 1, false, time};
    return EFI_SUCCESS;
}

} // namespace

EFI_STATUS get_time(const runtime_services &services, EFI_TIME *time, EFI_TIME_CAPABILITIES *capabilities)
{
    constexpr uint32_t usual_accuracy = 50'000'000; // parts per 10^12; a crystal has 50 per million
    EFI_TIME now = {};
    const EFI_STATUS status =
        services.root.live ? rtc_get_time(services.root, &now) : time_now(services, &now);
    if (status != EFI_SUCCESS)
        return status;
    *time = now;
    if (capabilities != nullptr) {
        capabilities->resolution = services.root.live ? 1 : static_cast<uint32_t>(nanoseconds);
        capabilities->accuracy = usual_accuracy;
        capabilities->sets_to_zero = 0;
    }
    return EFI_SUCCESS;
}

EFI_STATUS set_time(const runtime_services &services, const EFI_TIME &time)
{
    const auto wanted = seconds_of(time);
    if (!wanted)
        return EFI_INVALID_PARAMETER;
    if (!keeps_state(services))
        return EFI_UNSUPPORTED;
    const held_lock lock(services.root);
    if (lock.error() != 0)
        return lock.status();
    if (services.root.live)
        return rtc_set_time(services.root, time);
    const moment host = host_now();
    std::int64_t seconds = *wanted - host.seconds;
    std::int64_t fraction = static_cast<std::int64_t>(time.nanosecond) - host.nanosecond;
    if (fraction < 0) {
        fraction += nanoseconds;
        --seconds;
    }
    return write_state(services, offset_file,
                       std::array<std::int64_t, 4>{seconds, fraction, time.timezone, time.daylight});
}

EFI_STATUS get_wakeup_time(const runtime_services &services, wakeup *alarm)
{
    if (services.root.live)
        return rtc_get_wakeup_time(services.root, alarm);
    if (!keeps_state(services))
        return EFI_UNSUPPORTED;
    wakeup stored;
    bool found = false;
    if (const EFI_STATUS status = read_wakeup(services, &stored, &found); status != EFI_SUCCESS)
        return status;
    if (stored.enabled) {
        EFI_TIME now = {};
        if (const EFI_STATUS status = time_now(services, &now); status != EFI_SUCCESS)
            return status;
        stored.pending = is_reached(stored.time, now);
    }
    *alarm = stored;
    return EFI_SUCCESS;
}

EFI_STATUS set_wakeup_time(const runtime_services &services, bool enable, const EFI_TIME *time)
{
    if (!keeps_state(services))
        return EFI_UNSUPPORTED;
    if (enable && (time == nullptr || !seconds_of(*time)))
        return EFI_INVALID_PARAMETER;
    const held_lock lock(services.root);
    if (lock.error() != 0)
        return lock.status();
    if (services.root.live)
        return rtc_set_wakeup_time(services.root, enable, time);
    wakeup alarm;
    if (enable) {
        alarm.time = *time;
    } else {
        bool found = false;
        const EFI_STATUS status = read_wakeup(services, &alarm, &found);
        if (status != EFI_SUCCESS || !found) // no alarm to switch off
            return status;
    }
    const EFI_TIME &t = alarm.time;
    return write_state(services, wakeup_file,
                       std::array<std::int64_t, 10>{enable ? 1 : 0, t.year, t.month, t.day, t.hour, t.minute,
                                                    t.second, t.nanosecond, t.timezone, t.daylight});
}

EFI_STATUS next_high_monotonic_count(const runtime_services &services, UINT32 *count)
{
    if (services.root.live || !keeps_state(services))
        return EFI_UNSUPPORTED;
    const held_lock lock(services.root);
    if (lock.error() != 0)
        return lock.status();
    std::array<std::int64_t, 1> last = {};
    bool found = false;
    EFI_STATUS status = read_state(services, count_file, last, &found);
    if (status != EFI_SUCCESS)
        return status;
    if (last[0] < 0 || last[0] > UINT32_MAX)
        return refuse_state(count_file);
    const auto next = static_cast<UINT32>(last[0]) + 1; // 0 follows the last number, as in firmware
    status = write_state(services, count_file, std::array<std::int64_t, 1>{next});
    if (status == EFI_SUCCESS)
        *count = next;
    return status;
}

} // namespace machine
