/* SPDX-License-Identifier: MIT */
/* The fixed part of a load option variable (EFI_LOAD_OPTION, UEFI 3.1.3). */
#ifndef SRC_BOOT_LOADOPTION_H
#define SRC_BOOT_LOADOPTION_H

#include <bit>

#include <ovra/uefi.h>

namespace ovra {

/* Behind it: the description with its terminator, path_length bytes of packed path, the optional data. */
struct load_option_header {
    uint32_t attributes;
    uint16_t path_length;
} OVRA_PACKED;
static_assert(sizeof(load_option_header) == 6 && alignof(load_option_header) == 1);
static_assert(std::endian::native == std::endian::little, "stored records are read in place");

} // namespace ovra

#endif
