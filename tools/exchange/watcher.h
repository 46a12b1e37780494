/* SPDX-License-Identifier: MIT */
// Tells of changes of boot variables while they happen.
#ifndef OVRA_TOOLS_EXCHANGE_WATCHER_H
#define OVRA_TOOLS_EXCHANGE_WATCHER_H

#include "tools/machine/firmware.h"
#include "tools/machine/general.h"

namespace tool {

// Prints a line for each change, until a signal ends the program or nobody reads on. It looks when the system
// says that something changed, and every `seconds` where the system does not. Throws a failure.
void watch_boot_variables(firmware &machine, const general_options &general, unsigned seconds);

} // namespace tool

#endif
