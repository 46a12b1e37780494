/* SPDX-License-Identifier: MIT */
/* Numbers of variables and times (UEFI 8.2 and 8.3) beside those that <ovra/uefi.h> has for programs. */
#ifndef SRC_BASE_VARIABLE_H
#define SRC_BASE_VARIABLE_H

#include <ovra/uefi.h>

namespace ovra {

/* What variables that last until the next start have, and what boot options and their order have. */
inline constexpr uint32_t volatile_attributes = EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;
inline constexpr uint32_t boot_variable_attributes = EFI_VARIABLE_NON_VOLATILE | volatile_attributes;

inline constexpr uint32_t hardware_error_record = 0x08;
inline constexpr uint32_t authenticated_write = 0x10;
inline constexpr uint32_t time_based_authenticated_write = 0x20;
inline constexpr uint32_t enhanced_authenticated = 0x80;
/* Signed in either of the first two ways; the third came later. */
inline constexpr uint32_t authenticated = authenticated_write | time_based_authenticated_write;

/* The time zone of a time that has none. */
inline constexpr int16_t unspecified_timezone = 0x7ff;

} // namespace ovra

#endif
