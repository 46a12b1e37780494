/* SPDX-License-Identifier: MIT */
// The start of a machine in a folder, option by option.
#ifndef OVRA_TOOLS_EXCHANGE_START_H
#define OVRA_TOOLS_EXCHANGE_START_H

#include "tools/machine/firmware.h"
#include "tools/machine/general.h"

namespace tool {

// Goes through BootNext and BootOrder as firmware does, tells of each option why it starts or not, and leaves
// what a start leaves: BootCurrent, and no BootNext. The machine's lock is held. Throws a failure.
void play_start(firmware &machine, const general_options &general);

} // namespace tool

#endif
