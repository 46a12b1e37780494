/* SPDX-License-Identifier: MIT */
// The partitions of disks as the kernel has them, which read the tables at some time before.
#ifndef OVRA_TOOLS_KERNELPARTITIONS_H
#define OVRA_TOOLS_KERNELPARTITIONS_H

#include <cstdint>
#include <optional>
#include <string>

#include "src/base/hard_drive.h"
#include "tools/machine/contents.h"
#include "tools/machine/drives.h"

namespace tool {

// How many of the kernel's sectors of 512 bytes a block of the drive has.
uint64_t sectors_of_block(const drive &drive);

// Where the kernel has a partition, in sectors; nothing when it does not say.
std::optional<ovra::extent> kernel_extent(const drive &drive, const std::string &partition);

// Why it is not known which partitions a drive has: its table is damaged or read in part, or the kernel has
// partitions that are not in it. Empty if they are known.
std::string doubt_of_partitions(const drive &drive, const drive_contents &contents);

} // namespace tool

#endif
