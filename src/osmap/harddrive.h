/* SPDX-License-Identifier: MIT */
/* Hard-drive nodes: what their codes mean, where their disks' names stand, and which disks they stand for. */
#ifndef SRC_OSMAP_HARDDRIVE_H
#define SRC_OSMAP_HARDDRIVE_H

#include <memory>

#include "src/base/nodes.h"
#include "src/osmap/osmap.h"

namespace ovra {

enum partition_format : uint8_t { format_mbr = 1, format_gpt = 2 };
enum signature_type : uint8_t { signature_mbr = 1, signature_guid = 2 };

/* The folders of device names: slices of a GPT, and partitions of an MBR. */
inline constexpr char slice_folder[] = "/dev/dsk/";
inline constexpr char partition_folder[] = "/dev/rdsk/";

template <size_t size>
constexpr size_t length_of(const char (&)[size])
{
    return size - 1;
}

struct names_freeing {
    ovra_hdl_t hdl;
    void operator()(char **names) const { free_str_array(hdl, names); }
};

/* A string array that the handle owns, taken back unless it is released to the caller. */
using tracked_names = std::unique_ptr<char *, names_freeing>;

/* The first hard-drive node of a list (null: none), or null. */
const uefi_device_path_t *first_hard_drive(uefi_device_path_t **list);

/*
 * find_drive_guid or find_drive_mbrsig, by the node's signature type. -1 also for another type, and for a
 * node too short to have one.
 */
int find_drives(ovra_hdl_t hdl, const uefi_device_path_t *node, char ***names);

} // namespace ovra

#endif
