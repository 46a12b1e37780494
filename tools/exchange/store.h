/* SPDX-License-Identifier: MIT */
// The boot variables as one whole: what an exported text says and an imported one makes.
#ifndef OVRA_TOOLS_EXCHANGE_STORE_H
#define OVRA_TOOLS_EXCHANGE_STORE_H

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/machine/firmware.h"

namespace tool {

// A kind of load options, and the variable that orders them.
struct option_family {
    std::string_view prefix; // of the options' names, before four digits
    const char *order;
};

inline constexpr std::array<option_family, 3> families = {
    option_family{"Boot", "BootOrder"}, {"Driver", "DriverOrder"}, {"SysPrep", "SysPrepOrder"}};

// The variables beside the options, in the order in which a text has them.
inline constexpr std::array<const char *, 5> settings = {"BootOrder", "BootNext", "Timeout", "DriverOrder",
                                                         "SysPrepOrder"};

// "Boot001F", "Driver0000": the family of such a name; null for any other.
const option_family *family_of(std::string_view name);
std::string name_in(const option_family &family, uint16_t number);

// The options that an order names. Half an entry at its end is none.
std::vector<std::string> ordered_names(const option_family &family, byte_view order);

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
