/* SPDX-License-Identifier: MIT */
#ifndef OVRA_TOOLS_PASTE_STORAGE_H
#define OVRA_TOOLS_PASTE_STORAGE_H

#include "tools/paste/reading.h"

namespace tool {

// Whether it is the node of an NVMe namespace whose identifier begins with that of a maker of drives.
bool tells_its_maker(const reading &read);

} // namespace tool

#endif
