/* SPDX-License-Identifier: MIT */
// Memory that the machine keeps twice, which the two variables of address range mirroring are about.
#ifndef OVRA_TOOLS_DROPIN_MIRROR_H
#define OVRA_TOOLS_DROPIN_MIRROR_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/machine/firmware.h"

namespace tool::dropin {

// What is mirrored, and what was asked for where it is something else; empty on most machines.
std::string mirror_lines(firmware &machine);

// Asks the firmware for it; what is not given stays as it is. False, and it is said, where the machine does
// not do it. Throws a not_changed.
bool ask_for_mirror(firmware &machine, std::optional<bool> below, std::optional<uint16_t> above);

} // namespace tool::dropin

#endif
