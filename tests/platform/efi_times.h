/* SPDX-License-Identifier: MIT */
/* Times of the firmware from their fields. */
#ifndef TESTS_PLATFORM_EFI_TIMES_H
#define TESTS_PLATFORM_EFI_TIMES_H

#include "platform/include/devns.h"

namespace platform_test {

constexpr EFI_TIME at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    EFI_TIME time = {};
    time.year = static_cast<uint16_t>(year);
    time.month = static_cast<uint8_t>(month);
    time.day = static_cast<uint8_t>(day);
    time.hour = static_cast<uint8_t>(hour);
    time.minute = static_cast<uint8_t>(minute);
    time.second = static_cast<uint8_t>(second);
    return time;
}

} // namespace platform_test

#endif
