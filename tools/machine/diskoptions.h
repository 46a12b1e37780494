/* SPDX-License-Identifier: MIT */
// Which boot options lead to which disk.
#ifndef OVRA_TOOLS_DISKOPTIONS_H
#define OVRA_TOOLS_DISKOPTIONS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/machine/firmware.h"
#include "tools/machine/leading.h"

namespace tool {

struct found_option {
    uint16_t number = 0;
    bool other_extent = false; // the slice or partition has other blocks than its path says
    hardware_doubt doubt = hardware_doubt::none;

    // What is to be said of it; empty when nothing is.
    std::string remark() const;
};

// The options of a machine by where they lead. Each path that an option holds counts: its first instance by
// the hardware that it begins with, each instance by its slice or partition.
class disk_options {
public:
    // Options that cannot be read are named on standard error, as each may be one of a disk. Who asks for one
    // drive or volume alone says so by its marks: only options that have one of these are kept then.
    explicit disk_options(firmware &machine, const drive_marks *only = nullptr);

    // Those whose path names a hard-drive node first that firmware takes for this one, the node of a slice or
    // partition of a drive. The hardware in front of it must not lead to another drive.
    std::vector<found_option> of_volume(byte_view hard_drive, const std::string &drive) const;
    // Those that lead to a drive: by the hardware or by one of its slices or partitions.
    std::vector<found_option> of_drive(const drive_marks &marks) const;
    // Those of them that lead to none of its slices or partitions.
    std::vector<found_option> of_no_volume(const drive_marks &marks) const;

private:
    struct on_volume {
        uint16_t number = 0;
        bytes node;
        const drives_by_hardware::way *led_by = nullptr; // null: nothing stands in front of the node
    };

    // What is kept: everything without marks.
    struct interest {
        const drive_marks *marks = nullptr;
        std::vector<std::string> identities; // of the marks' hard-drive nodes

        bool has(const std::string &identity) const;
        bool has_hardware(byte_view nodes) const;
    };
    void add_volume_of(uint16_t number, byte_view nodes, const interest &kept);
    void add_hardware_of(uint16_t number, byte_view nodes, const interest &kept);
    const drives_by_hardware::way *way_of(byte_view nodes);
    void add_hardware(const drive_marks &marks, std::vector<found_option> *found) const;
    void add_volumes(const drive_marks &marks, std::vector<found_option> *found) const;

    struct beginning {
        uint16_t number = 0;
        bytes nodes; // of the first instance of a path
    };
    std::unordered_map<std::string, std::vector<on_volume>> by_identity;
    std::map<std::string, drives_by_hardware::way> ways; // by their nodes
    std::optional<drives_by_hardware> hardware;
    std::vector<beginning> beginnings; // of paths that do not begin with a hard-drive node
};

std::vector<uint16_t> numbers_of(const std::vector<found_option> &options);

// The names of the options in question, for programs.
json remarks_of(const option_kind &kind, const std::vector<found_option> &options);

} // namespace tool

#endif
