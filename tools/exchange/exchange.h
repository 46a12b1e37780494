/* SPDX-License-Identifier: MIT */
// Makes a machine's boot variables what a text says.
#ifndef OVRA_TOOLS_EXCHANGE_EXCHANGE_H
#define OVRA_TOOLS_EXCHANGE_EXCHANGE_H

#include "tools/exchange/boottext.h"
#include "tools/machine/changes.h"
#include "tools/machine/general.h"

namespace tool {

// Shows what differs, then writes it, or with --dry-run says what would be written. The machine's lock is
// held, and `before` was read since. When a step fails, those before it are undone, and the failure says so;
// it also says what could not be undone. `unwanted` are damaged variables that go.
void exchange(firmware &machine, const general_options &general, const boot_store &before,
              const variable_values &after, const std::vector<std::string> &unwanted, device_paths &paths);

// The names of what differs between two states, in the order in which a text has them.
std::vector<std::string> differing(const variable_values &before, const variable_values &after);

// A variable that is written, or without a value deleted.
change change_of(const std::string &name, const bytes *value);

// Throws a failure when a text is another machine's.
void require_same_machine(const machine_marks &text, const boot_store &here);

} // namespace tool

#endif
