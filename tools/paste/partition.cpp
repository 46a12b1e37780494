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

template <typename Take>
void for_each_with(byte_view guid, const std::vector<drive> &drives, const Take &take)
{
    for (const drive &drive : drives) {
        for (const volume &volume : drive.volumes) {
            if (std::equal(volume.guid.begin(), volume.guid.end(), guid.begin(), guid.end()))
                take(drive, volume);
        }
    }
}

} // namespace

std::vector<known_partition> partitions_with(byte_view guid)
{
    std::vector<known_partition> found;
    try {
        for_each_with(guid, all_drives(), [&found](const drive &drive, const volume &volume) {
            found.push_back({volume.kernel_name, hard_drive_node(drive, volume)});
        });
    } catch (const unclear_node &) {
        found.clear();
    }
    return found;
}

bytes partition_on_this_machine(uint64_t number, byte_view guid)
{
    const std::string identifier = "PARTUUID " + guid_text(guid);
    bytes node;
    for_each_with(guid, all_drives(), [&](const drive &drive, const volume &volume) {
        const uint64_t found = volume.number + uint64_t{1};
        if (found != number)
            refuse("it has no blocks, and the partition with the " + identifier + ", /dev/" +
                   volume.kernel_name + ", has the number " + std::to_string(found));
        const bytes next = hard_drive_node(drive, volume);
        if (!node.empty() && node != next)
            refuse("it has no blocks, and several partitions of this machine have the " + identifier);
        node = next;
    });
    if (node.empty())
        refuse("it has no blocks, and no disk of this machine has a partition with the " + identifier);
    return node;
}

} // namespace tool
