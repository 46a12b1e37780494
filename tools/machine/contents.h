/* SPDX-License-Identifier: MIT */
// What is on the machine's drives beside slices and partitions, and what arrays are made of.
#ifndef OVRA_TOOLS_CONTENTS_H
#define OVRA_TOOLS_CONTENTS_H

#include <string>
#include <unordered_map>
#include <vector>

namespace tool {

struct drive_contents {
    std::string kind;   // as libvolset says it, such as "file-system"; empty when it cannot be read
    std::string detail; // such as "vfat"
    bool first_header_damaged = false;
    bool is_short = false;            // what is read ends before the disk does
    bool has_more = false;            // the table has entries that are not shown
    bool is_special_file = false;     // neither a device nor an image, such as a FIFO
    int error = 0;                    // errno value
    std::string metadata;             // of an array: its format
    std::vector<std::string> members; // of an array: Linux's names

    // In the words of a person.
    std::string text() const;
    // Why its partitions are not known; empty when they are, or when there are none.
    std::string doubt() const;
    // Whether this is known to be a device of the kernel's own, such as a logical volume, without a table.
    bool is_no_disk(const std::string &path) const;
    // "sda1 and sdb1"
    std::string members_text() const;
};

// Whether a drive at this place in the device tree is one that the kernel makes of others, or of a file.
bool is_made_by_the_kernel(const std::string &path);

// By the names of the drives. What is on them is read if `reads_media` is set. Throws a failure.
std::unordered_map<std::string, drive_contents> read_contents(bool reads_media);

// While it lives, all that is read of the hardware shows the machine as it was at one moment, and reading
// many variables takes less.
class one_moment {
public:
    one_moment();
    one_moment(const one_moment &) = delete;
    one_moment &operator=(const one_moment &) = delete;
    ~one_moment();
};

} // namespace tool

#endif
