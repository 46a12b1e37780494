/* SPDX-License-Identifier: MIT */
/* What is on a disk: its partition table, read through libblkid. */
#ifndef HWPLAT_MACHINE_MEDIA_H
#define HWPLAT_MACHINE_MEDIA_H

#include <cstdint>
#include <vector>

#include "platform/machine/tree.h"
#include "src/base/guid.h"

namespace machine {

/* A GPT whose header claims more has none that is used. */
inline constexpr std::uint32_t most_gpt_entries = 65536;

enum class table_kind { none, mbr, gpt };

struct partition {
    unsigned number =
        0; /* of the table's entry, from 1; logical partitions of an MBR from 5; 0 the whole disk */
    std::uint64_t start = 0;    /* logical blocks */
    std::uint64_t size = 0;     /* logical blocks */
    ovra::guid_bytes guid = {}; /* of a GPT */

    bool operator==(const partition &) const = default;
};

struct medium {
    table_kind table = table_kind::none;
    std::uint32_t signature = 0;       /* of an MBR */
    std::vector<partition> partitions; /* by number; an MBR's begin with the whole disk */
    int error = 0;                     /* errno value: why the device cannot be read, if there is one */

    bool operator==(const medium &) const = default;
};

/*
 * The medium of a disk. One without a table of a kind that is used has none: a blank disk, or one without a
 * device file below the machine's "dev". Throws read_failure when the process is short of something, which
 * says nothing of the disk.
 */
medium read_medium(const machine_root &root, const disk &disk);

} // namespace machine

#endif
