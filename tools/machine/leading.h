/* SPDX-License-Identifier: MIT */
// Whether a path leads to a drive, slice or partition, by what firmware compares.
#ifndef OVRA_TOOLS_LEADING_H
#define OVRA_TOOLS_LEADING_H

#include <optional>
#include <string>
#include <vector>

#include "tools/machine/devicepaths.h"
#include "tools/machine/drives.h"
#include "tools/machine/fullform.h"

namespace tool {

// What in a path stands for a drive, as packed nodes.
struct drive_marks {
    std::string name;               // "c0t0d0"
    std::vector<bytes> hardware;    // what leads to it, in each form; empty when it is not known
    std::vector<bytes> hard_drives; // the nodes of its slices or partitions
};

drive_marks marks_of(const drive &drive, const hardware &hardware, device_paths &paths);

bool begins_with_any(byte_view nodes, const std::vector<bytes> &beginnings);

// A hard-drive node of a path, and what stands in front of it in its instance.
struct hard_drive_place {
    byte_view node; // empty when the path has none
    byte_view before;
};

// Of the first one.
hard_drive_place hard_drive_in(byte_view path);

// What firmware goes by in a hard-drive node: number, signature and their kinds, but not the blocks. The
// nodes of logical partitions and whole disks of an MBR, and those without signature, have nothing else to
// tell them apart: of these every byte counts.
std::string identity_of(byte_view hard_drive);

// What speaks against the hardware in front of a hard-drive node, which leads to no drive of this machine;
// the least of it first.
enum class hardware_doubt {
    none,
    unknown,    // whether it is that of a drive here cannot be told: the kernel has no name for it
    incomplete, // it ends before a drive, or does not begin at a root: firmware starts nothing then
    absent,     // this machine does not have it
};

// What is to be said of an option that leads to a slice or partition; empty when nothing is. `other_extent`:
// this has other blocks than the option's path says.
std::string remark_on(bool other_extent, hardware_doubt doubt);

// The drives of this machine by the hardware that leads to them.
class drives_by_hardware {
public:
    // Of all drives, which were read with their attachments. Throws a failure.
    explicit drives_by_hardware(const std::vector<drive> &all);

    struct way {
        std::vector<std::string>
            drives; // the names of those to which a path leads that begins with the nodes
        hardware_doubt doubt = hardware_doubt::none; // when there are none
    };
    // Throws a failure.
    way way_of(byte_view nodes);

private:
    hardware_doubt doubt_of(byte_view nodes);

    hardware tree;
    device_paths paths;
    std::vector<drive_marks> drives;
    std::vector<bytes> carriers_of_others; // of drives of which no more than the carrier is known, if that
    std::optional<std::vector<bytes>> carriers; // all of the machine, once they were asked for
};

// A slice or partition to which an option leads.
struct led_volume {
    std::string name;
    bool other_extent = false; // it has other blocks than the path says
    hardware_doubt doubt = hardware_doubt::none;
};

// What of all drives must be read before an option's paths are followed to them.
parts_of_drives parts_to_follow(byte_view option_path);

// Those of these drives to which one of an option's paths leads. `hardware` is theirs; null when these were
// read without attachments, as parts_to_follow may have it. Throws a failure.
std::vector<led_volume> volumes_of(byte_view option_path, const std::vector<drive> &drives,
                                   drives_by_hardware *hardware);

// The names of the drives to whose hardware one of an option's paths leads. Throws a failure.
std::vector<std::string> drives_of(byte_view option_path, drives_by_hardware &hardware);

} // namespace tool

#endif
