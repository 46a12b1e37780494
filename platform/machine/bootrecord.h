/* SPDX-License-Identifier: MIT */
/* The first block of a disk, and the records like it in front of logical partitions. */
#ifndef HWPLAT_MACHINE_BOOTRECORD_H
#define HWPLAT_MACHINE_BOOTRECORD_H

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace machine {

inline constexpr std::size_t record_size = 512; /* of an MBR, whatever the block size */

/* The number of 4 bytes that begins at `at`. */
inline std::uint32_t little_endian(std::span<const unsigned char> data, std::size_t at)
{
    return static_cast<std::uint32_t>(data[at] | data[at + 1] << 8 | data[at + 2] << 16) |
           static_cast<std::uint32_t>(data[at + 3]) << 24;
}

inline std::uint64_t little_endian64(std::span<const unsigned char> data, std::size_t at)
{
    return little_endian(data, at) | static_cast<std::uint64_t>(little_endian(data, at + 4)) << 32;
}

struct record_entry {
    unsigned char type;
    std::uint32_t start; /* logical blocks */
};

/* The entries of an MBR (UEFI 5.2.1), or of the same record before a logical partition; none without its
 * mark, or of less than a record. */
inline std::vector<record_entry> entries_of(std::span<const unsigned char> record)
{
    constexpr std::size_t first_entry = 446;
    constexpr std::size_t entry_size = 16;
    constexpr std::size_t type_in_entry = 4;
    constexpr std::size_t start_in_entry = 8;
    std::vector<record_entry> entries;
    if (record.size() < record_size || record[510] != 0x55 || record[511] != 0xaa)
        return entries;
    for (std::size_t at = first_entry; at < 510; at += entry_size)
        entries.push_back({record[at + type_in_entry], little_endian(record, at + start_in_entry)});
    return entries;
}

/* Whether an MBR leaves the disk to a GPT (UEFI 5.2.3). Otherwise the header of a GPT is a remnant. */
inline bool is_protective(const std::vector<record_entry> &entries)
{
    return std::any_of(entries.begin(), entries.end(), [](const auto &entry) { return entry.type == 0xee; });
}

} // namespace machine

#endif
