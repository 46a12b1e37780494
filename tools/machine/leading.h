/* SPDX-License-Identifier: MIT */
// Whether a path leads to a drive, slice or partition, by what firmware compares.
#ifndef OVRA_TOOLS_LEADING_H
#define OVRA_TOOLS_LEADING_H

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

// The drives of this machine by the hardware that leads to them.
class drives_by_hardware {
public:
    // Throws a failure.
    drives_by_hardware();

    // The names of those to which a path leads that begins with these nodes; none when it leads nowhere here.
    std::vector<std::string> led_to(byte_view nodes) const;

private:
    std::vector<drive_marks> drives;
};

// A slice or partition to which an option leads.
struct led_volume {
    std::string name;
    bool other_extent = false; // it has other blocks than the path says
};

// Those of these drives to which one of an option's paths leads. Throws a failure.
std::vector<led_volume> volumes_of(byte_view option_path, const std::vector<drive> &drives);

// The names of the drives to whose hardware one of an option's paths leads. Throws a failure.
std::vector<std::string> drives_of(byte_view option_path);

} // namespace tool

#endif
