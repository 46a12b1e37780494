/* SPDX-License-Identifier: MIT */
/* What is on a disk beyond the entries of its table: why there are none, and what is wrong with them. */
#ifndef HWPLAT_MACHINE_CONTENTS_H
#define HWPLAT_MACHINE_CONTENTS_H

#include <string>

#include "platform/machine/media.h"

namespace machine {

enum class contents_kind {
    absent,      /* no device file, no medium in the drive, or of no size */
    blank,       /* zeros where a table or a file system would be */
    unknown,     /* something else, without a table */
    file_system, /* without a table */
    other_table,
    damaged_gpt, /* neither of its copies is good */
    unused_gpt,  /* good, but neither libblkid nor the kernel takes it for one */
    gpt,
    mbr
};

struct contents {
    contents_kind kind = contents_kind::absent;
    std::string detail; /* libblkid's word for the file system or the table, such as "vfat"; of a damaged or
                           unused GPT, why there are no slices */
    bool first_damaged =
        false;             /* of a GPT: the header at its beginning, which the one at its end stands in for */
    bool is_short = false; /* the device or image ends before the disk does */
    bool has_more = false; /* entries of the table are left out */
    int error = 0;         /* errno value: why the device cannot be read */
};

/* `table` is what read_medium found. Throws read_failure when the process or the system has run short of
 * something. */
contents read_contents(const machine_root &root, const disk &disk, const medium &table);

} // namespace machine

#endif
