// SPDX-License-Identifier: MIT
#include "tools/paste/partition.h"

#include <algorithm>

#include "tools/machine/drives.h"
#include "tools/machine/leading.h"
#include "tools/text/failure.h"
#include "tools/text/nodeparse.h"

namespace tool {

namespace {

std::vector<drive> all_drives(bool with_attachments)
{
    try {
        return read_drives({.media = of_every_drive,
                            .attachments = with_attachments ? of_every_drive : parts_of_drives::choice()});
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
        for_each_with(guid, all_drives(false), [&found](const drive &drive, const volume &volume) {
            found.push_back({volume.kernel_name, hard_drive_node(drive, volume)});
        });
    } catch (const unclear_node &) {
        found.clear();
    }
    return found;
}

namespace {

struct candidate {
    const drive *on;
    const volume *what;

    std::string names() const { return both_names(what->name, what->kernel_name); }
};

// Firmware goes by the hardware too, where it stands in front.
std::vector<candidate> led_to(const drives_by_hardware::way &way, const std::vector<candidate> &all)
{
    std::vector<candidate> some;
    for (const candidate &each : all) {
        if (std::find(way.drives.begin(), way.drives.end(), each.on->name) != way.drives.end())
            some.push_back(each);
    }
    return some;
}

drives_by_hardware::way way_of(byte_view before, const std::vector<drive> &drives)
{
    if (before.empty())
        return {};
    try {
        return drives_by_hardware(drives).way_of(before);
    } catch (const failure &why) {
        refuse(std::string("it has no blocks, and ") + why.what());
    }
}

} // namespace

taken_partition partition_on_this_machine(uint64_t number, byte_view guid, byte_view before)
{
    const std::string with_it = "partition with the PARTUUID " + guid_text(guid);
    const std::vector<drive> drives = all_drives(!before.empty());
    std::vector<candidate> found;
    for_each_with(guid, drives, [&found](const drive &drive, const volume &volume) {
        found.push_back({&drive, &volume});
    });
    if (found.empty())
        refuse("it has no blocks, and no disk of this machine has a " + with_it);
    const drives_by_hardware::way way = way_of(before, drives);
    if (way.doubt == hardware_doubt::absent)
        refuse("it has no blocks, and the hardware in front of it is not on this machine: the " + with_it +
               " is " + found[0].names());
    if (!way.drives.empty()) {
        const std::vector<candidate> led = led_to(way, found);
        if (led.empty())
            refuse("it has no blocks, and the " + with_it + " is " + found[0].names() +
                   ": the hardware in front of it leads to the disk " +
                   both_names(way.drives[0], kernel_name_of(drives, way.drives[0])));
        found = led;
    }
    if (found.size() > 1)
        refuse("it has no blocks, and several partitions of this machine have the PARTUUID " +
               guid_text(guid) + ": " + found[0].names() + " and " + found[1].names());
    const volume &taken = *found[0].what;
    if (taken.number + uint64_t{1} != number)
        refuse("it has no blocks, and the " + with_it + ", /dev/" + taken.kernel_name + ", has the number " +
               std::to_string(taken.number + uint64_t{1}));
    return {found[0].names(), hard_drive_node(*found[0].on, taken)};
}

} // namespace tool
