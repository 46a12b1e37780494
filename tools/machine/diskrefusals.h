/* SPDX-License-Identifier: MIT */
// Why a name is of no slice or partition, where more can be said than that.
#ifndef OVRA_TOOLS_DISKREFUSALS_H
#define OVRA_TOOLS_DISKREFUSALS_H

#include <string>
#include <vector>

#include "tools/machine/disknames.h"
#include "tools/machine/drives.h"

namespace tool {

// Whether a name begins with that of a drive, and has more.
bool begins_with_name(const std::string &wanted, const std::string &drive);

// Whether a name has the form of one of a drive's slices or partitions.
bool is_volume_of(const std::string &wanted, const std::string &drive);

// The kernel's name of a device with its folder.
std::string in_dev_folder(const std::string &name);

// Throws a failure when the drive has a file system that begins at its first block.
void refuse_without_table(const std::string &text, const drive &drive);

// Throws a failure when the name is that of such a file system, as udev's links tell.
void refuse_whole_file_system(const std::vector<drive> &drives, const disk_name &wanted,
                              const std::string &text);

// Throws a failure when it names a partition of a table that is no longer on the disk: the kernel keeps those
// of the one that it read last.
void refuse_former_partition(const std::vector<drive> &drives, const disk_name &wanted,
                             const std::string &text);

} // namespace tool

#endif
