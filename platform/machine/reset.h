/* SPDX-License-Identifier: MIT */
/* ResetSystem (UEFI 8.5.1). */
#ifndef HWPLAT_MACHINE_RESET_H
#define HWPLAT_MACHINE_RESET_H

#include <ovra/uefi.h>

#include "platform/machine/services.h"

namespace machine {

/*
 * On "/" writes everything back and restarts or stops the machine; success does not return. On a folder
 * machine plays what the firmware does at the next start, and returns 0. -1 with errno: EINVAL for a type
 * unknown to UEFI, EOPNOTSUPP for an efivarfs below a root other than "/"; after any other error BootNext
 * still exists and the reset can be tried again.
 */
int reset_system(const runtime_services &services, UINT32 type);

} // namespace machine

#endif
