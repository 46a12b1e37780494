/* SPDX-License-Identifier: MIT */
// Options that are made, and what is kept of one that is changed.
#ifndef OVRA_TOOLS_NEWOPTION_H
#define OVRA_TOOLS_NEWOPTION_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/machine/changes.h"
#include "tools/machine/firmware.h"
#include "tools/machine/general.h"

namespace tool {

// Where a new option goes in BootOrder: last, unless one of these says otherwise.
struct order_place {
    std::optional<int> position;      // as with_inserted counts
    std::optional<std::string> after; // the name of an option in BootOrder
    bool none = false;
};

struct new_option {
    load_option option;
    std::optional<uint16_t> number; // else the lowest that nothing has or names
    order_place place;
    bool force = false; // overwrites, and takes a number that a variable still names
};

// Makes it and its place in BootOrder, both or neither, and keeps that for the report. The machine is locked.
// Throws a failure.
void make_option(firmware &machine, const new_option &made, const general_options &general, changes *changes);

// The first option in boot order with this path, file and optional data; nothing when there is none.
std::optional<uint16_t> option_like(firmware &machine, const load_option &option);

// An option to be changed. Throws a failure.
load_option changeable_option(firmware &machine, uint16_t number);

// Writes an option that was changed, if it was, and says what makes it unreadable for the library.
void change_option(const firmware &machine, uint16_t number, const load_option &before,
                   const load_option &after, changes *changes);

// Says it when programs that use the library cannot read an option's description.
void warn_of_description(const load_option &option, changes *changes);

} // namespace tool

#endif
