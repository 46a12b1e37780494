/* SPDX-License-Identifier: MIT */
// Paths from which firmware will probably start nothing.
#ifndef OVRA_TOOLS_STARTABLE_H
#define OVRA_TOOLS_STARTABLE_H

#include <string>
#include <vector>

#include "tools/text/text.h"

namespace tool {

struct caution {
    std::string what;
    std::string advice;
};

// Of a path that has the number 0 where firmware looks for that of a partition.
std::vector<caution> cautions_of_number(byte_view path);

// Of a path to a disk with fixed media that names no file.
std::vector<caution> cautions_of_no_file(byte_view path);

} // namespace tool

#endif
