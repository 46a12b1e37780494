// SPDX-License-Identifier: MIT
#include "tools/paste/partition.h"

#include <algorithm>

#include "tools/machine/drives.h"
#include "tools/text/failure.h"
#include "tools/text/nodeparse.h"

namespace tool {

namespace {

std::vector<drive> all_drives()
{
    try {
        return read_drives({.media = of_every_drive});
    } catch (const failure &why) {
        refuse(std::string("it has no blocks, and ") + why.what());
    }
}

} // namespace

bytes partition_on_this_machine(uint64_t number, byte_view guid)
{
    const std::string identifier = "PARTUUID " + guid_text(guid);
    bytes node;
    for (const drive &drive : all_drives()) {
        for (const volume &volume : drive.volumes) {
            if (!std::equal(volume.guid.begin(), volume.guid.end(), guid.begin(), guid.end()))
                continue;
            const uint64_t found = volume.number + 1U;
            if (found != number)
                refuse("it has no blocks, and the partition with the " + identifier + ", /dev/" +
                       volume.kernel_name + ", has the number " + std::to_string(found));
            const bytes next = hard_drive_node(drive, volume);
            if (!node.empty() && node != next)
                refuse("it has no blocks, and several partitions of this machine have the " + identifier);
            node = next;
        }
    }
    if (node.empty())
        refuse("it has no blocks, and no disk of this machine has a partition with the " + identifier);
    return node;
}

} // namespace tool
