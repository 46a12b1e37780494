/* SPDX-License-Identifier: MIT */
// The kinds of load options (UEFI 2.10, 3.1.3), which differ in their names alone.
#ifndef OVRA_TOOLS_OPTIONKIND_H
#define OVRA_TOOLS_OPTIONKIND_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct option_kind {
    const char *word;        // on the command line
    std::string_view prefix; // of the options' names, before four digits
    const char *order;       // the variable that orders them; null where the firmware alone writes them

    bool is_boot() const { return prefix == "Boot"; }

    // "Driver001F" of 0x1F.
    std::string name(uint16_t number) const;
    // "Driver001F Driver0002"
    std::string names(const std::vector<uint16_t> &options) const;
    // The number in the name of a variable; nothing for any other name.
    std::optional<uint16_t> number_in(std::string_view name) const;
    // The number of "Driver001F", "driver1f" or "1f".
    std::optional<uint16_t> typed_number(std::string_view text) const;
    // What a command line that is advised needs: " --kind driver".
    std::string in_advice() const;
};

inline constexpr std::array<option_kind, 4> option_kinds = {
    option_kind{"boot", "Boot", "BootOrder"}, option_kind{"driver", "Driver", "DriverOrder"},
    option_kind{"sysprep", "SysPrep", "SysPrepOrder"},
    option_kind{"platformrecovery", "PlatformRecovery", nullptr}};
inline constexpr const option_kind &boot_options = option_kinds[0];

} // namespace tool

#endif
