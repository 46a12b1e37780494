/* SPDX-License-Identifier: MIT */
/* The first blocks of file systems, as far as identities are read from them. */
#ifndef TESTS_SUPPORT_FILESYSTEMS_H
#define TESTS_SUPPORT_FILESYSTEMS_H

#include <cstdint>
#include <string>

#include "tests/support/gpt.h"
#include "tools/layout/fat.h"

namespace ovra::test {

using layout::make_fat;

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
