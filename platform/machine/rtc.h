/* SPDX-License-Identifier: MIT */
/*
 * The host's clock chip, <root>/dev/rtc0, through the requests of rtc(4). EFI_UNSUPPORTED when there is no
 * chip. The chip keeps no time zone: setting one other than UTC is EFI_UNSUPPORTED.
 */
#ifndef HWPLAT_MACHINE_RTC_H
#define HWPLAT_MACHINE_RTC_H

#include <ovra/uefi.h>

#include "platform/machine/clock.h"
#include "platform/machine/root.h"

namespace machine {

EFI_STATUS rtc_get_time(const machine_root &root, EFI_TIME *time);
EFI_STATUS rtc_set_time(const machine_root &root, const EFI_TIME &time);
EFI_STATUS rtc_get_wakeup_time(const machine_root &root, wakeup *alarm);

/*
 * `time` may be null when `enable` is false. EFI_INVALID_PARAMETER for an alarm that is not in the future or
 * that the chip does not take; the previous alarm is then restored. EFI_DEVICE_ERROR when that fails too.
 */
EFI_STATUS rtc_set_wakeup_time(const machine_root &root, bool enable, const EFI_TIME *time);

} // namespace machine

#endif
