/* SPDX-License-Identifier: MIT */
// Files that options boot, where their file system is mounted.
#ifndef OVRA_TOOLS_LOADERS_H
#define OVRA_TOOLS_LOADERS_H

#include <map>
#include <optional>
#include <string>

#include "tools/machine/machinefiles.h"
#include "tools/text/text.h"

namespace tool {

class mounted_loaders {
public:
    mounted_loaders(); // reads what is mounted

    // The path, from the machine's root, under which a file of a partition would be seen but is not; nothing
    // when it is there, its file system is not mounted, or a folder on the way cannot be read.
    std::optional<std::string> missing(const std::string &kernel_name,
                                       const std::string &firmware_file) const;

    // The file on a partition that a file's name from the machine's root means: the part below the mount
    // point. Nothing when the partition has the file itself under that name, or there is none below the mount
    // point.
    std::optional<std::string> below_mount_point(const std::string &kernel_name,
                                                 const std::string &firmware_file) const;

private:
    machine_files files;
    std::map<std::string, std::string> places; // mount points of FAT by Linux's names
};

// The text of the file nodes of a packed path's first instance; empty when it has none.
std::string file_in(byte_view path);

} // namespace tool

#endif
