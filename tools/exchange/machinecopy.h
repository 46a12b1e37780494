/* SPDX-License-Identifier: MIT */
// A machine copied into a folder, as far as boot variables and paths to disks need it.
#ifndef OVRA_TOOLS_EXCHANGE_MACHINECOPY_H
#define OVRA_TOOLS_EXCHANGE_MACHINECOPY_H

#include <filesystem>
#include <string>
#include <vector>

#include "tools/machine/firmware.h"

namespace tool {

struct copied_machine {
    size_t variables = 0;
    size_t disks = 0;
    std::vector<std::string> left_out; // "sda: Permission denied": variables and disks that cannot be read
};

// Copies into an empty folder: the variables of the global vendor, the numbers and names of the hardware that
// sysfs has, and the partition tables of the disks, without boot code and without anything else that is on
// them. `machine` is null for one without firmware variables. `root` is the machine's folder; empty for the
// machine that runs this. Throws a failure, or a filesystem_error when the copy cannot be written.
copied_machine copy_machine(firmware *machine, const std::string &root, const std::filesystem::path &to);

} // namespace tool

#endif
