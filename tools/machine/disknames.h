/* SPDX-License-Identifier: MIT */
// What people call a disk, understood: a name of the machine's or of Linux's, a file that leads to a device
// or is on one, or what identifies a partition or its file system.
#ifndef OVRA_TOOLS_DISKNAMES_H
#define OVRA_TOOLS_DISKNAMES_H

#include <optional>
#include <string>

namespace tool {

enum class named_by { name, partuuid, partlabel, uuid, label };

struct disk_name {
    named_by kind = named_by::name;
    std::string value;               // "sda1", "c0t0d0s0", "1234abcd-01"
    bool of_file = false;            // a file or folder was named that is on the disk
    std::optional<std::string> file; // a regular file's path there, as firmware writes it
    std::string file_system;         // of the file: "vfat"
};

// Throws a failure for a path that leads to no disk. Whether there is such a disk is not looked at.
disk_name understood(const std::string &text);

// "It lies on sda2 and sdb2." of a device that is made of others, such as a logical volume; else empty.
std::string lies_on(const disk_name &name);

} // namespace tool

#endif
