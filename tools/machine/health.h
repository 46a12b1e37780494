/* SPDX-License-Identifier: MIT */
// What is wrong with a machine's boot options.
#ifndef OVRA_TOOLS_HEALTH_H
#define OVRA_TOOLS_HEALTH_H

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/machine/firmware.h"

namespace tool {

// The options that were looked at, to find those that start the same. Only hashes stay in memory: a machine
// may have 60,000 options.
class seen_options {
public:
    // The option that was looked at before and has the same path, file, optional data and attributes; nothing
    // when there is none, or when the path has no nodes. This one is looked at then.
    std::optional<uint16_t> same_as(uint16_t number, const load_option &option);

private:
    std::string key; // memory that is used again
    std::unordered_map<std::string, uint16_t> by_key;
};

// The partitions that the machine has now.
class present_partitions {
public:
    // Reads all disks. Throws a failure.
    present_partitions();

    // Whether every instance of an option's paths leads to a partition, and none of these is there. Paths
    // through what may be pulled out or is reached over a network, such as USB, are never called gone.
    bool are_gone(byte_view option_path) const;

    // Linux's name of the partition that a hard-drive node leads to; nothing when it is not there.
    std::optional<std::string> linux_name(byte_view hard_drive) const;

    // Why an option cannot be called gone: a disk could not be read, its table is
    // damaged, or there is none. Empty if all is well.
    const std::string &doubt() const { return problem; }

private:
    std::unordered_map<std::string, std::string> names; // Linux's, by what firmware goes by
    std::string problem;
};

// False when an instance begins with its partition: the disk that had it may have been a USB stick.
bool says_where_its_disks_are(byte_view option_path);

// The options to which this applies, in boot order. Throws a failure when the disks cannot be read; with
// nothing to be said of them none is stale. The option that was booted is never called stale, and a duplicate
// that BootNext names is left alone.
std::vector<uint16_t> stale_options(firmware &machine);
std::vector<uint16_t> duplicate_options(firmware &machine);

// All options: those in BootOrder in its order, then the others. None twice; all exist.
std::vector<uint16_t> in_boot_order(firmware &machine);

} // namespace tool

#endif
