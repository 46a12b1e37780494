/* SPDX-License-Identifier: MIT */
/* EFI_TIME as a number (UEFI 8.3). */
#ifndef HWPLAT_MACHINE_EFICLOCK_H
#define HWPLAT_MACHINE_EFICLOCK_H

#include <cstdint>
#include <optional>

#include "src/base/variable.h"

namespace machine {

using ovra::unspecified_timezone;

/* Seconds since 1970, with the fields read as UTC. Nothing when a field is outside what UEFI allows. */
std::optional<std::int64_t> seconds_of(const EFI_TIME &time);

/* The inverse; time zone and daylight are 0. Nothing outside the years 1900 to 9999. */
std::optional<EFI_TIME> time_of(std::int64_t seconds, std::uint32_t nanosecond);

/* Whether `alarm` is at or before `now`. Compared as UTC if both have a time zone, else by their fields. */
bool is_reached(const EFI_TIME &alarm, const EFI_TIME &now);

} // namespace machine

#endif
