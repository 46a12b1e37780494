/* SPDX-License-Identifier: MIT */
// BootCurrent and BootNext: variables that name an option.
#ifndef OVRA_TOOLS_NAMED_H
#define OVRA_TOOLS_NAMED_H

#include "tools/machine/firmware.h"
#include "tools/machine/general.h"

namespace tool {

using named_option = std::optional<uint16_t> (firmware::*)();

// The option that &firmware::current or &firmware::next gives; nothing also when the variable is damaged,
// which is said on standard error.
std::optional<uint16_t> named_or_none(firmware &machine, named_option get);

// Says on standard error that an option cannot be read, unless it is only damaged.
void warn_of_unreadable(const unreadable &reason);

// An option's description for people, or in parentheses why there is none; the reason goes to standard error
// as well where it is not the option's own.
std::string description_of(firmware &machine, uint16_t number);

// Shows which option a variable names: under `key` in JSON, with its description in text.
void print_named_option(firmware &machine, const general_options &general, const char *key, named_option get,
                        const char *when_not_set);

} // namespace tool

#endif
