/* SPDX-License-Identifier: MIT */
// The boot variables as one whole: what an exported text says and an imported one makes.
#ifndef OVRA_TOOLS_EXCHANGE_STORE_H
#define OVRA_TOOLS_EXCHANGE_STORE_H

#include <array>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/machine/firmware.h"

namespace tool {

// The kinds of load options that a text has: not those that only the firmware writes.
inline constexpr std::span families = std::span(option_kinds).first<3>();

// The variables beside the options, in the order in which a text has them.
inline constexpr std::array<const char *, 5> settings = {"BootOrder", "BootNext", "Timeout", "DriverOrder",
                                                         "SysPrepOrder"};

// "Boot001F", "Driver0000": the kind of such a name; null for any other.
const option_kind *family_of(std::string_view name);

// The options that an order names. Half an entry at its end is none.
std::vector<std::string> ordered_names(const option_kind &family, byte_view order);

// Variables by their names, which sort as a text lists them within a family.
using variable_values = std::map<std::string, bytes>;

struct boot_store {
    variable_values values;
    std::map<std::string, std::string> unread;  // variables that are there but make no sense, with the reason
    std::map<std::string, uint32_t> attributes; // of those with others than boot variables have
    std::map<std::string, std::string> of_firmware; // what only the firmware changes: in words
};

// Throws a failure when one of them may not be read: it would look as if it were absent.
boot_store read_boot_store(firmware &machine);

} // namespace tool

#endif
