/* SPDX-License-Identifier: MIT */
/* Which disks hard-drive nodes stand for. */
#ifndef SRC_OSMAP_HARDDRIVE_H
#define SRC_OSMAP_HARDDRIVE_H

#include "src/base/device_name.h"
#include "src/base/hard_drive.h"
#include "src/osmap/osmap.h"

namespace ovra {

/* The first hard-drive node of a list (null: none), or null. */
const uefi_device_path_t *first_hard_drive(uefi_device_path_t **list);

/*
 * find_drive_guid or find_drive_mbrsig, by the node's signature type. -1 also for another type, and for a
 * node too short to have one.
 */
int find_drives(ovra_hdl_t hdl, const uefi_device_path_t *node, char ***names);

} // namespace ovra

#endif
