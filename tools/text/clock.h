/* SPDX-License-Identifier: MIT */
// The firmware's times (EFI_TIME, UEFI 8.3) as text.
#ifndef OVRA_TOOLS_CLOCK_H
#define OVRA_TOOLS_CLOCK_H

#include <string>

#include "src/base/variable.h"

namespace tool {

// "2026-01-31T12:00:00+02:00", or without the zone when the time has none.
std::string time_text(const EFI_TIME &time);

// The time that ISO 8601 text names. Throws a usage_error.
EFI_TIME parse_time(const std::string &text);

// Whether one moment is before another. Where one of them has no zone, both are of the same clock.
bool is_before(const EFI_TIME &time, const EFI_TIME &other);

} // namespace tool

#endif
