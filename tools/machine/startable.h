/* SPDX-License-Identifier: MIT */
// Paths from which firmware will probably start nothing.
#ifndef OVRA_TOOLS_STARTABLE_H
#define OVRA_TOOLS_STARTABLE_H

#include <string>
#include <vector>

#include "tools/machine/chosendisk.h"
#include "tools/text/text.h"

namespace tool {

struct caution {
    std::string what;
    std::string advice;
};

// What firmware goes by when it looks for the disk of a path, in the full form or the short one, may be that
// of another disk, or of none. `may_be_full`: --full can be advised.
std::vector<caution> cautions_of_disk(const chosen_disk &disk, bool full, bool may_be_full);

// Of a slice or partition that firmware does not have as the kernel has it: on a device that the kernel
// makes, or read from another table than the one that is on the disk now.
std::vector<caution> cautions_of_kernel(const chosen_disk &disk, const drive &drive);

// Of a slice or partition that firmware may pass over, or know by another number, as its table stands.
std::vector<caution> cautions_of_table(const chosen_disk &disk, const drive &drive);

// Of a path that has the number 0 where firmware looks for that of a partition.
std::vector<caution> cautions_of_number(byte_view path);

// Of a path to a disk with fixed media that names no file.
std::vector<caution> cautions_of_no_file(byte_view path);

// Of a path to a network card by its address alone.
std::vector<caution> cautions_of_network(byte_view path);

// Whether optional data is the mark of the options that firmware makes itself.
bool is_firmware_mark(byte_view optional_data);

// Of an option with this optional data that is to be changed: firmware may make its own anew.
std::vector<caution> cautions_of_mark(byte_view optional_data);

// Warns of each, on standard error and for programs.
void warn_of(const std::vector<caution> &cautions);

} // namespace tool

#endif
