/* SPDX-License-Identifier: MIT */
// The machine's disks through libvolset.
#ifndef OVRA_TOOLS_DRIVES_H
#define OVRA_TOOLS_DRIVES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/text/output.h"
#include "tools/text/text.h"

namespace tool {

// A slice of a GPT, or a partition of an MBR, of which number 0 is the whole disk.
struct volume {
    std::string name;        // "c0t0d0s0"
    std::string kernel_name; // "sda1"
    bool is_slice = false;
    unsigned number = 0; // as in its name
    uint64_t start = 0;  // in logical blocks, as is the size
    uint64_t size = 0;
    bytes guid; // of a slice: 16 bytes as they stand on disk
};

struct drive {
    std::string name;        // "c0t0d0"
    std::string kernel_name; // "sda"
    std::string path;        // in the device tree
    uint32_t block_size = 0;
    uint64_t blocks = 0;
    bool has_medium = false;
    int error = 0;                     // errno value: why its medium cannot be read, where that is known
    std::optional<uint32_t> signature; // of an MBR
    std::vector<volume> volumes;

    const char *medium() const;
};

// All drives; with `media` also what is on them. Throws a failure.
std::vector<drive> read_drives(bool media);

// The hard-drive node that stands for a volume in a path, by which options that boot from it are known.
bytes hard_drive_node(const drive &drive, const volume &volume);

// The first hard-drive node of a packed path; empty when there is none.
byte_view first_hard_drive(byte_view path);

// A slice or partition that was named on the command line.
struct chosen_disk {
    std::string name;        // "c0t0d0s0"
    std::string kernel_name; // "sda1"
    std::string partuuid;    // Linux's name for what identifies it; empty for the whole disk
    std::string signature;   // of an MBR
    bytes node;              // hard_drive_node() of it
    bool is_logical = false; // a partition of an MBR whose number is not in the node

    // "/dev/sda1 is c0t0d0s0, PARTUUID=..." of what was typed.
    std::string told_of(const std::string &typed) const;
    // The same for programs.
    json members() const;
};

// The disk of a name: the machine's ("c0t0d0s0", "/dev/dsk/c0t0d0s0"), Linux's ("sda1", "/dev/sda1"), or
// "PARTUUID=..." or "/dev/disk/by-partuuid/...". Throws a failure.
chosen_disk find_disk(const std::string &text);

// The other slices or partitions that have what identifies this one, as those of a copied disk do.
std::vector<chosen_disk> twins_of(const chosen_disk &disk);

// "12345678-9abc-..." of a GUID's 16 bytes as they stand on disk.
std::string guid_text(byte_view guid);

// "20.0 MiB"
std::string size_text(uint64_t count);

} // namespace tool

#endif
