/* SPDX-License-Identifier: MIT */
// Which boot options lead to which disk.
#ifndef OVRA_TOOLS_DISKOPTIONS_H
#define OVRA_TOOLS_DISKOPTIONS_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/machine/devicepaths.h"
#include "tools/machine/drives.h"
#include "tools/machine/firmware.h"
#include "tools/machine/fullform.h"

namespace tool {

// What in a path stands for a drive, as packed nodes.
struct drive_marks {
    std::vector<bytes> hardware;    // what leads to it, in each form; empty when it is not known
    std::vector<bytes> hard_drives; // the nodes of its slices or partitions
};

drive_marks marks_of(const drive &drive, const hardware &hardware, device_paths &paths);

// The names of the drives to whose hardware one of an option's paths leads. Throws a failure.
std::vector<std::string> drives_of(byte_view option_path);

// The options of a machine by what their paths begin with: each of the paths that an option holds counts.
class disk_options {
public:
    // Options that cannot be read are named on standard error, as each may be one of a disk.
    explicit disk_options(firmware &machine);

    // Those whose path names a hard-drive node first.
    std::vector<uint16_t> of_volume(byte_view hard_drive) const;
    // Those that lead to a drive: by the hardware or by one of its slices or partitions.
    std::vector<uint16_t> of_drive(const drive_marks &marks) const;
    // Those of them that lead to none of its slices or partitions.
    std::vector<uint16_t> of_no_volume(const drive_marks &marks) const;

private:
    void add_hardware(const drive_marks &marks, std::vector<uint16_t> *found) const;
    void add_volumes(const drive_marks &marks, std::vector<uint16_t> *found) const;

    struct beginning {
        uint16_t number = 0;
        bytes nodes; // of the first instance
    };
    std::unordered_map<std::string, std::vector<uint16_t>> by_hard_drive;
    std::vector<beginning> beginnings; // of paths that do not begin with a hard-drive node
};

} // namespace tool

#endif
