/* SPDX-License-Identifier: MIT */
/* Names of the operating system's devices. */
#ifndef SRC_BASE_DEVICE_NAME_H
#define SRC_BASE_DEVICE_NAME_H

#include <cstddef>
#include <string_view>

#include "src/base/ascii.h"

namespace ovra {

/* The folders of disks' names: slices of a GPT, and partitions of an MBR. And that of the device tree. */
inline constexpr char slice_folder[] = "/dev/dsk/";
inline constexpr char partition_folder[] = "/dev/rdsk/";
inline constexpr char device_folder[] = "/dev/";
inline constexpr char tree_folder[] = "/devices/";

template <size_t size>
constexpr size_t length_of(const char (&)[size])
{
    return size - 1;
}

enum class device_text : unsigned char {
    disk, /* a disk's name, "c0t0d0s0" or "/dev/dsk/c0t0d0s0" */
    name, /* another name below "/dev/" or "/devices/" */
    nodes /* a device path */
};

/* What the text of a device is taken for. Whether the device exists is not checked. */
constexpr device_text device_text_of(std::string_view text)
{
    if (text.size() > 1 && text[0] == 'c' && is_ascii_digit(text[1]))
        return device_text::disk;
    if (text.starts_with("/dev/dsk/c"))
        return device_text::disk;
    if (text.starts_with(device_folder) || text.starts_with(tree_folder))
        return device_text::name;
    return device_text::nodes;
}

} // namespace ovra

#endif
