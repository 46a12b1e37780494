/* SPDX-License-Identifier: MIT */
/* What a partition holds, read through libblkid. */
#ifndef HWPLAT_MACHINE_FILESYSTEM_H
#define HWPLAT_MACHINE_FILESYSTEM_H

#include <string>

#include "platform/machine/media.h"

namespace machine {

/* Text as the file system has it; empty where it has none. */
struct file_system {
    std::string type; /* such as "vfat" */
    std::string uuid; /* as Linux writes it */
    std::string label;

    bool operator==(const file_system &) const = default;
};

/*
 * Reads the file system in a partition. Nothing is set when there is none, when libblkid finds several at
 * once, or when the partition is a member of something larger, such as a RAID: the identity is then that of
 * the whole. Throws read_failure when the disk cannot be read.
 */
file_system read_file_system(const machine_root &root, const disk &disk, const partition &part);

} // namespace machine

#endif
