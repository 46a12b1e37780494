/* SPDX-License-Identifier: MIT */
/* The first blocks of file systems, as far as identities are read from them. */
#ifndef TESTS_SUPPORT_FILESYSTEMS_H
#define TESTS_SUPPORT_FILESYSTEMS_H

#include <cstdint>
#include <string>

#include "tests/support/gpt.h"

namespace ovra::test {

/* A FAT12 of 2048 blocks, its label in the root folder. Its serial number is its UUID: 0x1a2b3c4d is
 * "1A2B-3C4D". */
inline std::string make_fat(std::uint32_t serial, std::string label)
{
    constexpr std::size_t label_size = 11;
    const bool has_label = !label.empty();
    if (!has_label)
        label = "NO NAME"; // as FAT says it
    label.resize(label_size, ' ');
    std::string data(512, '\0');
    data.replace(0, 11, "\xeb\x3c\x90mkfs.fat");
    put_number(&data, 11, 512, 2);  // bytes of a sector
    put_number(&data, 13, 4, 1);    // sectors of a cluster
    put_number(&data, 14, 1, 2);    // reserved sectors
    put_number(&data, 16, 2, 1);    // tables
    put_number(&data, 17, 512, 2);  // entries of the root folder
    put_number(&data, 19, 2048, 2); // sectors
    put_number(&data, 21, 0xf8, 1); // a fixed disk
    put_number(&data, 22, 2, 2);    // sectors of a table
    put_number(&data, 24, 32, 2);
    put_number(&data, 26, 16, 2);
    put_number(&data, 38, 0x29, 1); // what follows is there
    put_number(&data, 39, serial, 4);
    data.replace(43, label_size, label);
    data.replace(54, 8, "FAT12   ");
    put_number(&data, 510, 0xaa55, 2);
    constexpr std::size_t root_folder = 5 * 512; // behind the tables
    data.resize(root_folder + 512);
    if (!has_label)
        return data;
    data.replace(root_folder, label_size, label);
    data[root_folder + label_size] = '\x08'; // a label
    return data;
}

/* An ext2 of 1024 blocks of 1024 bytes. `uuid`: 16 bytes. */
inline std::string make_ext2(const std::string &uuid, const std::string &label)
{
    constexpr std::size_t at = 1024;
    std::string data(2 * at, '\0');
    put_number(&data, at, 128, 4);       // inodes
    put_number(&data, at + 4, 1024, 4);  // blocks
    put_number(&data, at + 20, 1, 4);    // the first block with data
    put_number(&data, at + 32, 8192, 4); // blocks of a group
    put_number(&data, at + 40, 128, 4);  // inodes of a group
    put_number(&data, at + 56, 0xef53, 2);
    put_number(&data, at + 76, 1, 4);   // revision
    put_number(&data, at + 88, 128, 2); // bytes of an inode
    data.replace(at + 104, uuid.size(), uuid);
    data.replace(at + 120, label.size(), label);
    return data;
}

/* The superblock of a RAID member, metadata 1.1, which stands at its start. */
inline std::string make_raid_member()
{
    std::string data(4096, '\0');
    put_number(&data, 0, 0xa92b4efc, 4);
    put_number(&data, 4, 1, 4);
    data.replace(16, 16, "sixteen bytes...");
    data.replace(32, 6, "host:0");
    put_number(&data, 92, 2, 4);  // members
    put_number(&data, 144, 0, 8); // where it stands itself, in blocks
    return data;
}

} // namespace ovra::test

#endif
