/* SPDX-License-Identifier: MIT */
// Partition tables from one disk to another, and nothing else of it.
#ifndef OVRA_TOOLS_EXCHANGE_TABLECOPY_H
#define OVRA_TOOLS_EXCHANGE_TABLECOPY_H

#include <cstdint>
#include <string>

namespace tool {

// Makes an image of a disk with the tables on it, which are read from `disk` below the machine's folder:
// those of an MBR with its logical partitions, without boot code, and both of a GPT. Sizes in bytes. 0, or an
// errno value of reading: links in `disk` are not followed. Throws a failure when the image cannot be
// written.
int copy_tables(const std::string &folder, const std::string &disk, const std::string &image, uint64_t size,
                uint32_t block);

} // namespace tool

#endif
