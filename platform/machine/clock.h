/* SPDX-License-Identifier: MIT */
/*
 * The time services (UEFI 8.3) and the monotonic count (section 8.5.2). A live machine has the
 * host's clock chip (rtc.h); a folder machine keeps what was set in its state files (state.h).
 */
#ifndef HWPLAT_MACHINE_CLOCK_H
#define HWPLAT_MACHINE_CLOCK_H

#include <ovra/uefi.h>

#include "platform/machine/services.h"

namespace machine {

struct wakeup {
    bool enabled = false;
    bool pending = false; /* the alarm has gone off */
    EFI_TIME time = {};   /* all zero when no alarm was ever set */
};

/* Outputs are written with EFI_SUCCESS alone; `capabilities` may be null. */
EFI_STATUS get_time(const runtime_services &services, EFI_TIME *time, EFI_TIME_CAPABILITIES *capabilities);
EFI_STATUS set_time(const runtime_services &services, const EFI_TIME &time);
EFI_STATUS get_wakeup_time(const runtime_services &services, wakeup *alarm);

/* `time` may be null when `enable` is false: the alarm keeps its time. */
EFI_STATUS set_wakeup_time(const runtime_services &services, bool enable, const EFI_TIME *time);

EFI_STATUS next_high_monotonic_count(const runtime_services &services, UINT32 *count);

} // namespace machine

#endif
