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

struct taken_partition {
    std::string names; // "c0t0d0s0 (sda1)"
    bytes node;
};

// The partition of a GPT with this number and identifier (its 16 bytes as they stand on disk) among the disks
// of this machine; only among those to which the nodes `before` it lead, when they lead to any. Throws an
// unclear_node when none has them or several have, and when this machine does not have what is before it.
taken_partition partition_on_this_machine(uint64_t number, byte_view guid, byte_view before);

} // namespace tool

#endif
