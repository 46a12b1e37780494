/* SPDX-License-Identifier: MIT */
// The machine's disks through libvolset.
#ifndef OVRA_TOOLS_DRIVES_H
#define OVRA_TOOLS_DRIVES_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/text/output.h"
#include "tools/text/text.h"

namespace tool {

// A slice of a GPT, or a partition of an MBR; its number 0 is the whole disk.
struct volume {
    std::string name;        // "c0t0d0s0"
    std::string kernel_name; // "sda1"
    bool is_slice = false;
    unsigned number = 0; // as in its name
    uint64_t start = 0;  // in logical blocks, as is the size
    uint64_t size = 0;
    bytes guid;              // of a slice: 16 bytes as they stand on disk
    std::string label;       // of a slice, in its entry
    uint64_t attributes = 0; // of a slice: the bits in its entry

    // Of the file system, when read_drives was to read it.
    std::string fs_uuid;
    std::string fs_label;
    int error = 0; // errno value: why it cannot be read
};

// How a drive is attached behind the function of its controller, as libvolset (volset.h) names it.
struct attachment {
    std::string transport;                 // "sata"; empty: not known
    std::string place_unknown;             // why its place is not known; empty when it is
    std::map<std::string, uint64_t> place; // "port", "target"
    bytes eui64;
    bytes usb_ports;
    bool is_removable = false; // the media

    std::optional<uint64_t> number(const std::string &name) const
    {
        const auto found = place.find(name);
        return found == place.end() ? std::nullopt : std::optional(found->second);
    }
};

struct drive {
    std::string name;        // "c0t0d0"
    std::string kernel_name; // "sda"
    std::string path;        // in the device tree
    attachment attached;     // when read_drives was to read it
    uint32_t block_size = 0;
    uint64_t blocks = 0;
    bool has_medium = false;
    int error = 0;                     // errno value: why its medium cannot be read, where that is known
    std::optional<uint32_t> signature; // of an MBR
    std::vector<volume> volumes;

    const char *medium() const;
};

// What of the drives is read beside themselves: each takes system calls, and a medium its device.
struct parts_of_drives {
    using choice = std::function<bool(const drive &)>; // null: of none
    choice media = nullptr;
    choice attachments = nullptr;
    bool file_systems = false; // of the volumes on these media
};

// The choice of all drives.
bool of_every_drive(const drive &drive);

// All drives. Throws a failure.
std::vector<drive> read_drives(const parts_of_drives &wanted);

// The name with Linux's behind it, if that is known: "c0t0d0s0 (sda1)".
std::string both_names(const std::string &name, const std::string &kernel_name);

// Linux's name of a drive, slice or partition; empty without the drive.
std::string kernel_name_of(const std::vector<drive> &drives, std::string_view volume);

// The drive that has a slice or partition of this name, with its medium and its attachment. Throws a failure,
// also when there is none.
drive drive_of(const std::string &volume);

// The hard-drive node that stands for a volume in a path, by which options that boot from it are known.
bytes hard_drive_node(const drive &drive, const volume &volume);

// The first hard-drive node of a packed path; empty when there is none.
byte_view first_hard_drive(byte_view path);

// "12345678-9abc-..." of a GUID's 16 bytes as they stand on disk.
std::string guid_text(byte_view guid);

// "20.0 MiB"
std::string size_text(uint64_t count);

} // namespace tool

#endif
