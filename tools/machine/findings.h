/* SPDX-License-Identifier: MIT */
// What a look at all boot options finds wrong.
#ifndef OVRA_TOOLS_FINDINGS_H
#define OVRA_TOOLS_FINDINGS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/machine/firmware.h"

namespace tool {

struct finding {
    const char *kind; // for programs: "stale"
    std::optional<uint16_t> option;
    std::string text;          // for people
    bool can_be_fixed = false; // by removing the option, or by repairing BootOrder
};

struct findings {
    std::vector<finding> all;
    std::vector<uint16_t> to_remove; // duplicates, and stale ones whose disks cannot have been pulled out
    bool order_is_damaged = false;   // it cannot be repaired then
    std::string not_known;           // what could not be looked at; empty if all is well
};

// Throws a failure when the machine cannot be read at all.
findings look_at(firmware &machine);

} // namespace tool

#endif
