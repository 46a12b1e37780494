/* SPDX-License-Identifier: MIT */
/* What is on a disk: its partition table, read through libblkid. */
#ifndef HWPLAT_MACHINE_MEDIA_H
#define HWPLAT_MACHINE_MEDIA_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/files.h"
#include "platform/machine/tree.h"
#include "src/base/guid.h"

namespace machine {

/* A GPT whose header claims more entries is ignored. */
inline constexpr std::uint32_t most_gpt_entries = 65536;

enum class table_kind { none, mbr, gpt };

struct partition {
    /* The table's entry, from 1. In an MBR logical partitions have numbers from 5, the whole disk has 0. */
    unsigned number = 0;
    std::uint64_t start = 0;      /* logical blocks */
    std::uint64_t size = 0;       /* logical blocks */
    ovra::guid_bytes guid = {};   /* of a GPT */
    std::string label = {};       /* of a GPT, in UTF-8 */
    std::uint64_t attributes = 0; /* of a GPT: the bits in its entry */

    bool operator==(const partition &) const = default;
};

struct medium {
    table_kind table = table_kind::none;
    std::uint32_t signature = 0;       /* of an MBR */
    std::vector<partition> partitions; /* by number; in an MBR the whole disk comes first */
    std::string other;                 /* libblkid's word for a table of another kind, such as "sun" */
    bool has_more = false;             /* entries that make no sense are left out */
    int error = 0;                     /* errno value: why the device cannot be read */

    bool operator==(const medium &) const = default;
};

/*
 * Opens the device or image of a disk for reading. Empty with errno on failure; ENOENT: the machine's "dev"
 * has none.
 */
owned_fd open_disk(const machine_root &root, const disk &disk);

/* The size of an open device or image in bytes. Nothing for anything else. Throws read_failure. */
std::optional<std::uint64_t> device_size(int device);

/*
 * Reads the medium of a disk. Its table is `none` for a blank disk, for another kind of table and for a disk
 * without a device file below the machine's "dev". Throws read_failure when the process or the system has run
 * short of something.
 */
medium read_medium(const machine_root &root, const disk &disk);

} // namespace machine

#endif
