/* SPDX-License-Identifier: MIT */
// Which disk a file of the machine is on.
#ifndef OVRA_TOOLS_MOUNTS_H
#define OVRA_TOOLS_MOUNTS_H

#include <string>

#include "tools/machine/machinefiles.h"

namespace tool {

struct file_place {
    std::string device;      // "/dev/sda1", or "8:1" where the number is what is known of it
    std::string path;        // of the file on its file system: "/EFI/BOOT/BOOTX64.EFI"
    std::string file_system; // "vfat"
};

// Where a file is that machine_files::find gave. Throws a failure for one that is on no disk or on more than
// one, and when the machine's files do not say what is mounted.
file_place place_of(const machine_files &files, const found_file &file);

} // namespace tool

#endif
