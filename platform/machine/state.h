/* SPDX-License-Identifier: MIT */
/* What a folder machine remembers besides variables: files of numbers in <root>/var/lib/hwplat. */
#ifndef HWPLAT_MACHINE_STATE_H
#define HWPLAT_MACHINE_STATE_H

#include <cstdint>
#include <span>

#include <ovra/uefi.h>

#include "platform/machine/services.h"

namespace machine {

/*
 * Reads a line of decimal numbers with single blanks between them. An absent file is EFI_SUCCESS with
 * `*found` false. A file with any other contents is EFI_DEVICE_ERROR; one that cannot be read, what status_of
 * makes of the error.
 */
EFI_STATUS read_state(const runtime_services &services, const char *file_name,
                      std::span<std::int64_t> numbers, bool *found);

/* The answer when the numbers make no sense; says so under HWPLAT_DEBUG. */
EFI_STATUS refuse_state(const char *file_name);

/* Writes the numbers, under the machine's lock. Makes the folder when it is absent. */
EFI_STATUS write_state(const runtime_services &services, const char *file_name,
                       std::span<const std::int64_t> numbers);

} // namespace machine

#endif
