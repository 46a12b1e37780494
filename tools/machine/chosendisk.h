/* SPDX-License-Identifier: MIT */
// The disk that a user names.
#ifndef OVRA_TOOLS_CHOSENDISK_H
#define OVRA_TOOLS_CHOSENDISK_H

#include <optional>
#include <string>
#include <vector>

#include "tools/machine/drives.h"
#include "tools/text/output.h"
#include "tools/text/text.h"

namespace tool {

// A slice or partition that was named on the command line.
struct chosen_disk {
    std::string name;        // "c0t0d0s0"
    std::string kernel_name; // "sda1"
    std::string drive;       // "c0t0d0", which has it
    std::string partuuid;    // Linux's name for what identifies it; empty for the whole disk
    std::string signature;   // of an MBR
    bytes node;              // hard_drive_node() of it
    bool is_logical = false; // a partition of an MBR whose number is not in the node

    // When a file on it was named.
    bool of_file = false;
    std::optional<std::string> file; // a regular file, as firmware names it
    std::string file_system;         // of the file: "vfat"

    // "c0t0d0s0 (sda1)"
    std::string both_names() const;
    // "/dev/sda1 is c0t0d0s0, PARTUUID=..." of what was typed.
    std::string told_of(const std::string &typed) const;
    // The same for programs.
    json members() const;
};

// The disk of a name that disknames.h understands; with `part` the disk's partition of that number, as Linux
// counts them. Throws a failure.
chosen_disk find_disk(const std::string &text, std::optional<unsigned> part = std::nullopt);

// The drives that a name is of, or that have what it names, with what is on them. Throws a failure when there
// is none.
std::vector<drive> find_drives(const std::string &text);

// The other slices or partitions that have what identifies this one, as those of a copied disk do.
std::vector<chosen_disk> twins_of(const chosen_disk &disk);

} // namespace tool

#endif
