/* SPDX-License-Identifier: MIT */
// The partition that a text names without its blocks.
#ifndef OVRA_TOOLS_PASTE_PARTITION_H
#define OVRA_TOOLS_PASTE_PARTITION_H

#include "tools/text/text.h"

namespace tool {

// The hard-drive node of the partition of a GPT with this number and identifier (its 16 bytes as they stand
// on disk) among the disks of this machine. Throws an unclear_node when none has them, or several that
// differ.
bytes partition_on_this_machine(uint64_t number, byte_view guid);

} // namespace tool

#endif
