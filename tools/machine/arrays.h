/* SPDX-License-Identifier: MIT */
// Arrays of disks that the kernel makes (md). Firmware knows nothing of them: it sees their members.
#ifndef OVRA_TOOLS_ARRAYS_H
#define OVRA_TOOLS_ARRAYS_H

#include <optional>
#include <string>

#include "tools/machine/chosendisk.h"
#include "tools/machine/drives.h"

namespace tool {

// The Linux name of the member that stands for an array without a partition table, as it was typed; warns of
// the others. Nothing for any other drive. Throws a failure for an array whose members firmware cannot read.
std::optional<std::string> member_for_firmware(const std::string &typed, const drive &drive);

// Throws a failure when firmware cannot read a slice or partition because it is in an array, or a member of
// one, whose data does not begin where the member does.
void require_not_in_an_array(const chosen_disk &disk);

} // namespace tool

#endif
