/* SPDX-License-Identifier: MIT */
/* The variable services, with the firmware's rules (UEFI 8.2). */
#ifndef HWPLAT_MACHINE_VARIABLES_H
#define HWPLAT_MACHINE_VARIABLES_H

#include <ovra/uefi.h>

#include "platform/machine/efivarfs.h"
#include "platform/machine/names.h"
#include "platform/machine/services.h"

namespace machine {

/*
 * GetVariable. `*size` is the size of the buffer going in and of the data coming out, in bytes. `*size` and
 * `*attributes` (may be null) are written with EFI_SUCCESS and EFI_BUFFER_TOO_SMALL, the data with
 * EFI_SUCCESS alone. `data` may be null when the buffer is too small.
 */
EFI_STATUS get_variable(const runtime_services &services, name_view name, const EFI_GUID &guid,
                        UINT32 *attributes, UINTN *size, void *data);

/*
 * SetVariable. `size` is in bytes. Nothing changes unless the answer is EFI_SUCCESS, or EFI_DEVICE_ERROR from
 * a disk that failed after the new value was in place.
 */
EFI_STATUS set_variable(const runtime_services &services, name_view name, const EFI_GUID &guid,
                        UINT32 attributes, UINTN size, const void *data);

/* QueryVariableInfo. `*space` is written with EFI_SUCCESS alone. */
EFI_STATUS query_variable_info(const runtime_services &services, UINT32 attributes, variable_space *space);

} // namespace machine

#endif
