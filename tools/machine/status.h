/* SPDX-License-Identifier: MIT */
// What the firmware answers, and the attributes of variables, in words.
#ifndef OVRA_TOOLS_STATUS_H
#define OVRA_TOOLS_STATUS_H

#include <cstdint>
#include <string>
#include <vector>

#include "src/base/variable.h"

namespace tool {

using ovra::boot_variable_attributes;

// "EFI_NOT_FOUND"; never a number that only firmware engineers know.
std::string status_name(EFI_STATUS status);

// Whether a status, or an errno value, speaks of missing permission.
bool is_refusal(EFI_STATUS status);
bool is_permission(int error);

// "non-volatile", "run-time"
std::vector<std::string> attribute_words(uint32_t attributes);

// The same as UEFI abbreviates them: "NV", "RT".
std::vector<std::string> attribute_letters(uint32_t attributes);

} // namespace tool

#endif
