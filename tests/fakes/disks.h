/* SPDX-License-Identifier: MIT */
/*
 * Drives, media, partitions and slices in memory, in place of libvolset and libkvlist. See platform.h for
 * failing calls and what is watched; the names that vs_get_name gives are plain blocks for free().
 */
#ifndef TESTS_FAKES_DISKS_H
#define TESTS_FAKES_DISKS_H

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace fakes {

using attribute = std::variant<uint32_t, uint64_t, std::vector<uint8_t>>;
using attribute_map = std::map<std::string, attribute>;

/* A partition or slice; one without a name, such as "/dev/dsk/c0t0d0s0", cannot be named or found. */
struct unit {
    std::string name;
    attribute_map attributes = {};
};

struct medium {
    attribute_map attributes = {};
    std::vector<unit> partitions = {};
    std::vector<unit> slices = {};

    void add_partition(const std::string &name, uint32_t start, uint32_t size);
    void add_slice(const std::string &name, uint64_t start, uint64_t size, const std::vector<uint8_t> &guid);
};

struct drive {
    std::string name;
    std::vector<medium> media = {};
};

/* All drives, in their order. Not to be changed while a descriptor is out. */
std::deque<drive> &drives();

/* A new last drive with one medium, which is returned. */
medium &add_mbr_drive(const std::string &name, uint32_t signature);
medium &add_gpt_drive(const std::string &name);

} // namespace fakes

#endif
