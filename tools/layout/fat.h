/* SPDX-License-Identifier: MIT */
/* The first blocks of a FAT, as far as its identity is read from them. */
#ifndef OVRA_TOOLS_LAYOUT_FAT_H
#define OVRA_TOOLS_LAYOUT_FAT_H

#include <cstdint>
#include <string>

#include "tools/layout/gpt.h"

namespace layout {

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
    constexpr std::size_t root_folder = std::size_t{5} * 512; // after the tables
    data.resize(root_folder + 512);
    if (!has_label)
        return data;
    data.replace(root_folder, label_size, label);
    data[root_folder + label_size] = '\x08'; // a label
    return data;
}

} // namespace layout

#endif
