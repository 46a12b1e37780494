/* SPDX-License-Identifier: MIT */
// The partition that a text names without its blocks.
#ifndef OVRA_TOOLS_PASTE_PARTITION_H
#define OVRA_TOOLS_PASTE_PARTITION_H

#include <string>
#include <vector>

#include "tools/text/text.h"

namespace tool {

struct known_partition {
    std::string kernel_name;
    bytes node; // as hard_drive_node() makes it
};

// The slices of this machine with an identifier; none where its disks cannot be read.
std::vector<known_partition> partitions_with(byte_view guid);

// The hard-drive node of the partition of a GPT with this number and identifier (its 16 bytes as they stand
// on disk) among the disks of this machine. Throws an unclear_node when none has them, or several that
// differ.
bytes partition_on_this_machine(uint64_t number, byte_view guid);

} // namespace tool

#endif
